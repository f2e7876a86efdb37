// subject.h: the item that a request is about, in the request's own words.
#pragma once

#include <cstdint>
#include <optional>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/values.h>

#include "servers/kestrelwoodd/caller.h"

namespace ksw::daemon {

/// Which arguments a method has to name the owner of an item with.
enum class Owner : std::uint8_t {
    Bundle,    ///< A bundle's URL, or nothing.
    Process,   ///< A process.
    OneOfBoth  ///< A process or a bundle's URL, or nothing, but not both.
};

/// Borrows the arguments of a request for as long as it is served. Nothing in it has been checked.
struct Subject {
    Owner owner = Owner::Bundle;
    const std::optional<AuditToken>& token;
    const std::optional<URL>& bundleURL;
    KSWItemType type = 0;
    const std::optional<URL>& url;
    const std::optional<Dictionary>& configuration;
    Uid uid = kNoUser;
};

inline const std::optional<AuditToken> kNoToken;
inline const std::optional<URL> kNoURL;
inline const std::optional<Dictionary> kNoConfiguration;

/// What a request about records says, and who says it: the record, by whatever names it, and whose it is. Borrows
/// them for as long as the request is served.
template <class Thing>
struct RecordRequest {
    const Thing& thing;
    Uid uid;
    const Caller& caller;
};

// The arguments of each method as a subject.

inline Subject subjectOf(const std::optional<AuditToken>& token, const std::optional<URL>& bundleURL,
                         std::int64_t type, const std::optional<URL>& url,
                         const std::optional<Dictionary>& configuration, Uid uid) {
    return {Owner::OneOfBoth, token, bundleURL, static_cast<KSWItemType>(type), url, configuration, uid};
}

inline Subject subjectOf(const std::optional<AuditToken>& token, const std::optional<URL>& bundleURL,
                         std::int64_t type, const std::optional<URL>& url, Uid uid) {
    return {Owner::OneOfBoth, token, bundleURL, static_cast<KSWItemType>(type), url, kNoConfiguration, uid};
}

inline Subject subjectOf(const std::optional<URL>& bundleURL, std::int64_t type, const std::optional<URL>& url,
                         const std::optional<Dictionary>& configuration, Uid uid) {
    return {Owner::Bundle, kNoToken, bundleURL, static_cast<KSWItemType>(type), url, configuration, uid};
}

inline Subject subjectOf(const std::optional<URL>& bundleURL, std::int64_t type, const std::optional<URL>& url,
                         Uid uid) {
    return {Owner::Bundle, kNoToken, bundleURL, static_cast<KSWItemType>(type), url, kNoConfiguration, uid};
}

inline Subject subjectOf(const std::optional<AuditToken>& token, std::int64_t type, const std::optional<URL>& url,
                         const std::optional<Dictionary>& configuration, Uid uid) {
    return {Owner::Process, token, kNoURL, static_cast<KSWItemType>(type), url, configuration, uid};
}

inline Subject subjectOf(const std::optional<AuditToken>& token, std::int64_t type, const std::optional<URL>& url,
                         Uid uid) {
    return {Owner::Process, token, kNoURL, static_cast<KSWItemType>(type), url, kNoConfiguration, uid};
}

}  // namespace ksw::daemon
