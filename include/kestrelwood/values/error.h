// error.h: why something failed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <kestrelwood/export.h>
#include <kestrelwood/values/string_constant.h>

namespace ksw {

class Value;
/// A dictionary of property-list values; its keys are in ascending byte order, so equal ones encode alike.
using Dictionary = std::map<std::string, Value, std::less<>>;

/// The user-information key of an error's text for people.
inline constexpr StringConstant kLocalizedDescriptionKey = "KSWLocalizedDescription";

/// The domain of errors whose code is an errno value.
inline constexpr StringConstant kPosixErrorDomain = "KSWPosixErrorDomain";
/// The domain of the platform's own status codes: -50 a parameter is wrong, -4 not implemented.
inline constexpr StringConstant kStatusErrorDomain = "KSWStatusErrorDomain";
/// The domain of service connections; its codes are `ConnectionError`.
inline constexpr StringConstant kConnectionErrorDomain = "KSWConnectionErrorDomain";
/// The domain of archives and property lists that cannot be read or written; its codes are `FormatError`.
inline constexpr StringConstant kFormatErrorDomain = "KSWFormatErrorDomain";
/// The domain of what goes wrong with the files that objects stand for; its codes are `ObjectError`.
inline constexpr StringConstant kObjectErrorDomain = "KSWObjectErrorDomain";

/// What goes wrong with the file that a URL or a bookmark stands for.
enum class ObjectError : std::int64_t {
    NoSuchFile = 260,  ///< The file does not exist, or is not found.
};

/// Why a request over a service connection has no reply.
enum class ConnectionError : std::int64_t {
    Unreachable = 1,      ///< No server listens under the name, or it took too long to answer the dialling.
    WrongPeer = 2,        ///< The listener does not run as the user that the service belongs to.
    Interrupted = 3,      ///< The peer closed or died before it answered.
    ReplyInvalid = 4,     ///< The reply does not fit the method.
    Refused = 5,          ///< The server refused the request and said why.
    Invalidated = 6,      ///< The connection is over and does not dial again.
    RequestTooLarge = 7,  ///< The request passes a bound; nothing was sent.
};

/// Why bytes could not be read as, or objects written into, an archive or a property list.
enum class FormatError : std::int64_t {
    Malformed = 1,    ///< The bytes are not in the format.
    WrongType = 2,    ///< A value is of another type than its place allows.
    WrongClass = 3,   ///< An object is of a class that its place does not allow.
    LimitPassed = 4,  ///< A bound was passed: depth, count, length or memory.
    MissingRoot = 5,  ///< The archive has no object under the key asked for.
    Unsupported = 6,  ///< The format has no form for the value.
};

/// A failure: a domain, a code in that domain, and user information. An immutable value that copies by
/// sharing; safe to read from many threads.
class KSW_EXPORT Error {
public:
    /// An error without user information.
    Error(std::string_view domain, std::int64_t code);
    /// An error whose only user information is its text for people.
    Error(std::string_view domain, std::int64_t code, std::string_view text);
    Error(std::string_view domain, std::int64_t code, Dictionary userInfo);
    Error(ConnectionError code, std::string_view text)
        : Error(kConnectionErrorDomain, static_cast<std::int64_t>(code), text) {}
    Error(ObjectError code, std::string_view text)
        : Error(kObjectErrorDomain, static_cast<std::int64_t>(code), text) {}
    Error(FormatError code, std::string_view text)
        : Error(kFormatErrorDomain, static_cast<std::int64_t>(code), text) {}

    /// Whose codes these are, the code, and what else is known: property-list values by key.
    const std::string& domain() const;
    std::int64_t code() const;
    const Dictionary& userInfo() const;

    /// The text for people; empty when the user information has none.
    std::string_view localizedDescription() const;
    /// `Error Domain=D Code=N "text"`; the quoted text is left out when there is none.
    std::string description() const;

    /// Whether domain, code and user information are equal.
    KSW_EXPORT friend bool operator==(const Error& left, const Error& right);

private:
    struct Content;
    std::shared_ptr<const Content> content_;
};

}  // namespace ksw
