#include "client/values/fetch_result_archive.h"

#include "client/values/fetch_result_fields.h"
#include "model/item/item_archive.h"
#include "platform/archive/class_table.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "platform/host/log.h"

using ksw::Bytes;
using ksw::Error;
using ksw::FetchResultAccess;
using ksw::FetchResultFields;
using ksw::FormatError;
using ksw::host::mainLog;

namespace {

using Chain = ksw::archive::UnarchivedArray<KSWItem>;
using ksw::archive::field;

constexpr char kDecoding[] = "-[KSWFetchResult initWithCoder:]";

// A chain's archive may be as long as a byte string may be, all of them together as long as a message.
constexpr auto kFields = ksw::archive::fieldTable(
    field<&FetchResultFields::code>("code"),
    field<&FetchResultFields::encodedItems>("encodedItems", {.sizeMax = ksw::limits::kFrameBodyMax}));

/// Reads the archive of a chain, at least the item itself. Containers and children refer to each other, so circles
/// are expected.
ksw::Result<Chain> decodeChain(Bytes archive, const ksw::archive::FinishContext& context) {
    const ksw::archive::ReadOptions options{.coder = ksw::archive::Coder::Ordinary,
                                            .cycles = ksw::archive::Cycles::Allowed};
    ksw::Result<Chain> chain = ksw::archive::unarchiveArray<KSWItem>(archive, options, context.budget);
    if (chain && chain->roots.empty()) {
        return Error(FormatError::MissingRoot, "root: no item");
    }
    return chain;
}

/// Bytes that are no archive at all differ from an archive without the objects that were asked for.
void logFailure(const Error& error) {
    if (error.code() == static_cast<std::int64_t>(FormatError::Malformed)) {
        mainLog.error("%s: QFKeyedUnarchiver init error: %{public}@", kDecoding, error);
    } else {
        mainLog.error("%s: decoder error: %{public}@", kDecoding, error);
    }
}

ksw::Status finishDecoding(KSWFetchResult& result, const ksw::archive::FinishContext& context) {
    FetchResultFields& fields = FetchResultAccess::fields(result);
    if (fields.encodedItems.size() > ksw::limits::kListItemsMax) {
        return Error(FormatError::LimitPassed, "encodedItems: more than 16384 archives");
    }
    for (const ksw::Data& archive : fields.encodedItems) {
        const ksw::Result<Chain> chain = decodeChain(archive, context);
        if (!chain) {
            logFailure(chain.error());
            continue;
        }
        fields.items.push_back(chain->roots.front());
        fields.containers.insert(fields.containers.end(), chain->roots.begin() + 1, chain->roots.end());
    }
    return {};
}

constexpr ksw::archive::ClassInfo kClass =
    ksw::archive::describeClass<KSWFetchResult, &FetchResultAccess::fields, &finishDecoding>("KSWFetchResult",
                                                                                             kFields);

}  // namespace

const ksw::archive::ClassInfo& archiveClass(const KSWFetchResult* /*result*/) {
    return kClass;
}
