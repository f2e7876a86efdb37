// may_load JOB.plist: may this agent's job load? Exit status 0 yes, 5 no, 6 no answer.
#include <filesystem>
#include <iostream>

#include <kestrelwood/kestrelwood.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: may_load JOB.plist\n";
        return 2;
    }
    const auto job = ksw::URL::fileURL(std::filesystem::absolute(argv[1]).native());
    const auto type = KSWItemTypeAgent | KSWItemTypeLegacyBit;
    const ksw::Dictionary configuration{{std::string(KSWConfigLabel), LabelForStewardPlist(job).value_or("")}};

    std::int64_t disposition = 0;
    if (!KSWManager::shared().getEffectiveDisposition(&disposition, /*LWCR=*/nullptr, /*appURL=*/std::nullopt, type,
                                                      job, configuration, getuid())) {
        std::cerr << "may_load: no answer\n";
        return 6;
    }
    const auto bits = static_cast<KSWDisposition>(disposition);
    std::cout << KSWDispositionDescription(bits) << '\n';
    return KSWDispositionIsLaunchable(bits) ? 0 : 5;
}
