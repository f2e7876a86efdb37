// archive_tool: items between archives and readable text, for a test in another language.
//   archive_tool write        writes an archive of sample items to standard output
//   archive_tool read         reads an archive of a list of items from standard input and prints a line for each
//   field archive_tool read-service the same with the service coder
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/KSWItem.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"

namespace {

using ksw::archive::Coder;

int fail(const ksw::Error& error) {
    std::fprintf(stderr, "%s\n", std::string(error.localizedDescription()).c_str());
    return 1;
}

int write() {
    const auto application = KSWItem::initWithType(0x20, "2.com.example.app");
    application->setUuid(ksw::UUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF"));
    application->setName("Example \xE2\x98\x83");
    application->setUrl(ksw::URL::fileURL("/Applications/Example.app", ksw::PathKind::Directory));
    const auto agent = KSWItem::initWithType(0x8, "8.com.example.agent");
    agent->setUuid(ksw::UUID::fromString("FFEEDDCC-BBAA-9988-7766-554433221100"));
    agent->setUrl(ksw::URL::fileURL("Contents/agent.plist", *application->url()));
    agent->setGeneration(-3);
    agent->setModificationDate(12.5);
    agent->setSha256(ksw::Data(32, 0xAB));
    agent->setProgramArguments(KSWItem::Strings{"agent", "--now"});
    agent->setEditable(true);
    agent->setContainer(application);
    const std::vector items{agent, application};
    const auto bytes = ksw::archive::archiveArray<KSWItem>(items, Coder::Ordinary);
    if (!bytes) {
        return fail(bytes.error());
    }
    return std::fwrite(bytes->data(), 1, bytes->size(), stdout) == bytes->size() ? 0 : 1;
}

ksw::Data standardInput() {
    ksw::Data bytes;
    for (int c = std::getchar(); c != EOF; c = std::getchar()) {
        bytes.push_back(static_cast<std::uint8_t>(c));
    }
    return bytes;
}

void print(const char* name, const std::string& text) {
    std::printf("%s=%s\n", name, text.c_str());
}

void printItem(const KSWItem& item) {
    print("uuid", item.uuid() ? item.uuid()->string() : "none");
    print("identifier", item.identifier().value_or("none"));
    print("name", item.name().value_or("none"));
    print("url", item.url() ? item.url()->absoluteString() : "none");
    print("generation", std::to_string(item.generation()));
    print("modificationDate", std::to_string(item.modificationDate()));
    print("type", std::to_string(item.type()));
    print("editable", item.isEditable() ? "yes" : "no");
    for (const std::string& argument : item.programArguments().value_or(KSWItem::Strings())) {
        print("argument", argument);
    }
    print("container", item.container() ? item.container()->identifier().value_or("none") : "none");
    print("children", item.embeddedItems() ? std::to_string(item.embeddedItems()->size()) : "none");
}

int read(Coder coder) {
    const ksw::Data bytes = standardInput();
    ksw::archive::DecodeBudget budget(bytes.size());
    const auto items = ksw::archive::unarchiveArray<KSWItem>(
        bytes, {.coder = coder, .cycles = ksw::archive::Cycles::Allowed}, budget);
    if (!items) {
        return fail(items.error());
    }
    for (const auto& item : items->roots) {
        printItem(*item);
    }
    return 0;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const std::string_view verb = argumentCount == 2 ? arguments[1] : "";
    if (verb == "write") {
        return write();
    }
    if (verb == "read" || verb == "read-service") {
        return read(verb == "read" ? Coder::Ordinary : Coder::ServiceConnection);
    }
    std::fprintf(stderr, "usage: archive_tool write|read|read-service\n");
    return 2;
}
