// limits.h: every bound that keeps a peer, a file or an archive from taking more than its share.
// One constant a bound, with its unit and where the number comes from. Ours, unless an origin is named.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ksw::limits {

inline constexpr std::size_t kKiB = 1024;
inline constexpr std::size_t kMiB = 1024 * kKiB;

// Frames, in bytes. A reply may carry a whole list; a request is small, and root's may carry a payload.
inline constexpr std::size_t kFrameBodyMax = 64 * kMiB;
inline constexpr std::size_t kRequestBodyMax = 1 * kMiB;
inline constexpr std::size_t kRootRequestBodyMax = 16 * kMiB;
/// How far a receive buffer grows ahead of the bytes that have arrived, whatever the header promises.
inline constexpr std::size_t kBufferAheadMax = 64 * kKiB;
/// A method's name on the wire, in bytes.
inline constexpr std::size_t kSelectorMax = 256;
/// A distributed notification, in bytes.
inline constexpr std::size_t kNotificationMax = 64 * kKiB;
/// Names of notifications that one connection observes: a process observes a handful. What a hub keeps for its
/// observers is charged to nobody, since this bounds it: 64 names of at most 256 bytes are 32 KiB a connection, and
/// 32 MiB for a user's kHubConnectionsPerUidMax. A notification is kept once for all who wait for it, and is as
/// large as those make it who may post: the system itself, and in a session its only user.
inline constexpr std::size_t kNotificationNamesMax = 64;

// Decoding.
/// Nesting of CBOR, property lists and archives in archives, together.
inline constexpr std::size_t kDepthMax = 64;
inline constexpr std::size_t kObjectsMax = 65'536;
/// Marks of shareable values and references to them, together.
inline constexpr std::size_t kSharedReferencesMax = 262'144;
/// Keys of one object that its class does not know: a newer peer adds a few.
inline constexpr std::size_t kUnknownKeysMax = 32;
/// Elements reserved at once for a declared count; the rest grows as elements arrive.
inline constexpr std::size_t kReserveMax = 4'096;
/// Heap of one decoding: this many times the input, and this much on top, in bytes.
inline constexpr std::size_t kHeapFactor = 8;
inline constexpr std::size_t kHeapBase = 1 * kMiB;
/// One text or byte string, and one field of an item, in bytes.
inline constexpr std::size_t kStringMax = 16 * kMiB;
inline constexpr std::size_t kFieldMax = 64 * kKiB;
/// Containers above an item.
inline constexpr std::size_t kContainerChainMax = 16;
inline constexpr std::size_t kListItemsMax = 16'384;
/// One record in the daemon's store, in bytes; a request that makes one is no larger from an ordinary user.
inline constexpr std::size_t kRecordMax = 1 * kMiB;
/// Records of one user, and their bytes, so that a whole family of items fits one reply.
inline constexpr std::size_t kRecordsPerUidMax = kListItemsMax;
inline constexpr std::size_t kRecordBytesPerUidMax = 32 * kMiB;
inline constexpr std::size_t kLoginItemsMax = 1'024;

// Serving.
inline constexpr std::size_t kRequestsInFlightMax = 128;
inline constexpr std::size_t kConnectionsMax = 4'096;
inline constexpr std::size_t kConnectionsPerUidMax = 256;
/// The same of a hub: every process that observes keeps one open, beside those for its requests.
inline constexpr std::size_t kHubConnectionsPerUidMax = 1'024;
/// Connections kept free for uid 0.
inline constexpr std::size_t kConnectionsReservedForRoot = 64;
/// Bytes held for one uid, and for all of them together.
inline constexpr std::size_t kBytesPerUidMax = 64 * kMiB;
inline constexpr std::size_t kBytesHeldMax = 512 * kMiB;

// Time, in seconds.
/// Dialling: a full backlog would block for ever.
inline constexpr int kDialSeconds = 5;
/// A request to a service of a user who may have stopped it, for those who must not wait for one user.
inline constexpr int kUserServiceSeconds = 5;
/// A started frame that makes no progress, or a reply that its reader does not take.
inline constexpr int kStallSeconds = 30;
/// What a server allows itself before an error is the reply.
inline constexpr int kLaunchQuestionSeconds = 5;
inline constexpr int kRequestSeconds = 20;
inline constexpr int kLongRequestSeconds = 60;

// Files, in bytes unless said otherwise.
inline constexpr std::size_t kPropertyListFileMax = 1 * kMiB;
inline constexpr std::size_t kAttributionTableMax = 8 * kMiB;
/// A name for people in an information property list.
inline constexpr std::size_t kDisplayNameMax = 1 * kKiB;
/// A bookmark, which is a field of an item, and the path in it. Origin: Linux's PATH_MAX, less the byte at its end.
inline constexpr std::size_t kBookmarkMax = kFieldMax;
inline constexpr std::size_t kBookmarkPathMax = 4'095;
/// Directory entries read while looking for a file that moved.
inline constexpr std::size_t kBookmarkSearchEntriesMax = 4'096;
/// A folder of applications, with the folders in it: how deep an application may lie, directory entries read,
/// applications, and bytes of their information property lists.
inline constexpr std::size_t kApplicationDepthMax = 3;
inline constexpr std::size_t kApplicationEntriesMax = 65'536;
inline constexpr std::size_t kApplicationsMax = 2'048;
inline constexpr std::size_t kApplicationBytesMax = 16 * kMiB;
/// Users whose own applications are kept in memory.
inline constexpr std::size_t kApplicationUsersMax = 256;

// Code signatures, in bytes unless said otherwise.
/// The message with the signer's certificates, and how many of those there may be.
inline constexpr std::size_t kSignatureMessageMax = 1 * kMiB;
inline constexpr std::size_t kSignatureCertificatesMax = 16;
/// Certificates from the signer's own to the trusted one, both included.
inline constexpr std::size_t kSignatureChainMax = 8;
inline constexpr int kSignatureRsaBitsMin = 2'048;
/// What a signature says of its code: two property lists of `kPropertyListFileMax`, two fields, and some room.
inline constexpr std::size_t kCodeDirectoryMax = 2 * kPropertyListFileMax + 2 * kFieldMax + 64 * kKiB;
/// A signature as it stands in a file, before it is written as text.
inline constexpr std::size_t kSignatureMax = kCodeDirectoryMax + kSignatureMessageMax + 64;
/// Code that is verified: a few seconds of hashing.
inline constexpr std::uint64_t kSignedCodeMax = 2'048 * kMiB;
/// A signing or team identifier.
inline constexpr std::size_t kCodeIdentifierMax = 1 * kKiB;
/// Trusted certificates read from one folder, and files looked at there.
inline constexpr std::size_t kTrustedCertificatesMax = 256;
/// Verified files that are remembered, and the bytes of their signatures together: a host's every job, and no more
/// memory than a few thousand usual signatures take.
inline constexpr std::size_t kVerifiedFilesMax = 8'192;
inline constexpr std::size_t kVerifiedBytesMax = 16 * kMiB;

/// A message of the desktop's bus.
inline constexpr std::size_t kBusMessageMax = 64 * kKiB;

// The log.
inline constexpr std::size_t kLogFieldMax = 8 * kKiB;
/// How long one send to the journal may wait, in milliseconds.
inline constexpr int kLogSendMilliseconds = 10;

}  // namespace ksw::limits
