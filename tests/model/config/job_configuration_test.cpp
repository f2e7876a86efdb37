// The launch configuration in a job's property list.

#include <gtest/gtest.h>

#include <kestrelwood/KSWFunctions.h>

namespace {

using ksw::Array;
using ksw::configurationFromJob;
using ksw::Data;
using ksw::Date;
using ksw::Dictionary;
using ksw::FormatError;
using ksw::Value;

Dictionary jobWith(const std::string& key, const Value& value) {
    Dictionary job{{"Label", "com.example.job"}};
    job[key] = value;
    return job;
}

/// Why the job has no configuration; empty when it has one.
std::string complaintOf(const Dictionary& job, FormatError code = FormatError::WrongType) {
    std::optional<ksw::Error> error;
    if (configurationFromJob(job, &error)) {
        return "";
    }
    EXPECT_EQ(error->domain(), ksw::kFormatErrorDomain);
    EXPECT_EQ(error->code(), static_cast<std::int64_t>(code));
    return std::string(error->localizedDescription());
}

TEST(AJob, BecomesAConfigurationByItsKeys) {
    std::optional<ksw::Error> error = ksw::Error("before", 1);
    EXPECT_EQ(configurationFromJob({{"Label", "com.example.job"},
                                    {"Program", "/usr/bin/job"},
                                    {"ProgramArguments", Array{"job", "-v"}},
                                    {"BundleProgram", "Contents/Linux/job"},
                                    {"AssociatedBundleIdentifiers", Array{"com.example.a", "com.example.b"}},
                                    {"RunAtLoad", true},
                                    {"StartInterval", 300}},
                                   &error),
              (Dictionary{{KSWConfigLabel, "com.example.job"},
                          {KSWConfigExecutablePath, "/usr/bin/job"},
                          {KSWConfigArguments, Array{"job", "-v"}},
                          {KSWConfigBundleProgram, "Contents/Linux/job"},
                          {KSWConfigBundleIdentifiers, Array{"com.example.a", "com.example.b"}}}));
    EXPECT_EQ(error, ksw::Error("before", 1)) << "left as it was";
}

TEST(AJob, WithALabelAloneIsOne) {
    EXPECT_EQ(configurationFromJob({{"Label", "x"}}), (Dictionary{{KSWConfigLabel, "x"}}));
}

TEST(AJob, NamesItsExecutableByProgramThenBundleProgramThenFirstArgument) {
    Dictionary job{{"Label", "x"}, {"ProgramArguments", Array{"job", "-v"}}};
    const auto executable = [&] {
        return *ksw::find<std::string>(*configurationFromJob(job), KSWConfigExecutablePath);
    };
    EXPECT_EQ(executable(), "job");
    job["BundleProgram"] = "Contents/Linux/job";
    EXPECT_EQ(executable(), "Contents/Linux/job");
    job["Program"] = "/usr/bin/job";
    EXPECT_EQ(executable(), "/usr/bin/job");
    EXPECT_EQ(configurationFromJob({{"Label", "x"}, {"ProgramArguments", Array{}}}),
              (Dictionary{{KSWConfigLabel, "x"}, {KSWConfigArguments, Array{}}}));
}

TEST(AJob, MayNameOneApplicationAsAText) {
    EXPECT_EQ(
        configurationFromJob(jobWith("AssociatedBundleIdentifiers", "com.example.a")),
        (Dictionary{{KSWConfigLabel, "com.example.job"}, {KSWConfigBundleIdentifiers, Array{"com.example.a"}}}));
}

TEST(AJob, WithAValueOfAWrongKindIsNone) {
    const Value wrong[] = {true, 1, -1.5, Data{1}, Date{0}, Dictionary{}, Array{1}, Array{"a", Array{}}, Value()};
    for (const Value& value : wrong) {
        for (const char* key : {"Label", "Program", "BundleProgram"}) {
            EXPECT_EQ(complaintOf(jobWith(key, value)), "the value of '" + std::string(key) + "' is not a string");
        }
        for (const char* key : {"ProgramArguments", "AssociatedBundleIdentifiers"}) {
            EXPECT_EQ(complaintOf(jobWith(key, value)),
                      "the value of '" + std::string(key) + "' is not an array of strings");
        }
    }
    EXPECT_EQ(complaintOf(jobWith("ProgramArguments", "job")),
              "the value of 'ProgramArguments' is not an array of strings");
    for (const char* key : {"Label", "Program", "BundleProgram"}) {
        EXPECT_NE(complaintOf(jobWith(key, Array{"a"})), "");
    }
}

TEST(AJob, WithoutALabelIsNone) {
    EXPECT_EQ(complaintOf({}), "the key 'Label' is missing");
    EXPECT_EQ(complaintOf({{"label", "x"}, {"Program", 1}}), "the key 'Label' is missing");
    EXPECT_EQ(configurationFromJob({}), std::nullopt);
}

TEST(AJob, WithAControlCharacterInItsLabelIsNone) {
    for (const char* label : {"a\nb", "\x1b[2J", "a\tb", "\x7f", "a\xC2\x9B"}) {
        EXPECT_EQ(complaintOf({{"Label", label}}), "the value of 'Label' has control characters in it") << label;
    }
    EXPECT_EQ(complaintOf({{"Label", std::string("a\0b", 3)}}),
              "the value of 'Label' has control characters in it");
    EXPECT_EQ(complaintOf({{"Label", "a\xFF"}}), "the value of 'Label' has control characters in it");
    EXPECT_EQ(complaintOf({{"Label", "com.example.\xC3\xA4 b"}}), "");
}

TEST(AJob, WithALongerTextThanAnItemHoldsIsNone) {
    const std::string longest(65'536, 'a');
    for (const char* key : {"Label", "Program", "BundleProgram"}) {
        EXPECT_EQ(complaintOf(jobWith(key, longest)), "");
        EXPECT_EQ(complaintOf(jobWith(key, longest + "a"), FormatError::LimitPassed),
                  "the value of '" + std::string(key) + "' is longer than 65536 bytes");
    }
    for (const char* key : {"ProgramArguments", "AssociatedBundleIdentifiers"}) {
        EXPECT_EQ(complaintOf(jobWith(key, Array{"a", longest})), "");
        EXPECT_EQ(complaintOf(jobWith(key, Array{"a", std::string(1 << 20, 'a')}), FormatError::LimitPassed),
                  "the value of '" + std::string(key) + "' is longer than 65536 bytes");
    }
    EXPECT_EQ(complaintOf(jobWith("AssociatedBundleIdentifiers", longest + "a"), FormatError::LimitPassed),
              "the value of 'AssociatedBundleIdentifiers' is longer than 65536 bytes");
}

TEST(AJob, MayHaveTenThousandArguments) {
    const Array many(10'000, Value("argument"));
    EXPECT_EQ(*ksw::find<Array>(*configurationFromJob(jobWith("ProgramArguments", many)), KSWConfigArguments),
              many);
}

}  // namespace
