// bookmark_fuzz.cpp: any bytes as a bookmark: an error of the format that says what, or a content that is written
// and read again as the same one, matches itself, and has names to show. Nothing here looks at files.
#include <cstdint>
#include <cstdlib>

#include <kestrelwood/KSWAdditions.h>

#include "platform/base/limits.h"
#include "platform/facts/bookmark_blob.h"

namespace {

using namespace ksw::facts;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool isSame(const BookmarkContent& left, const BookmarkContent& right) {
    const bool hasFile = left.file.has_value();
    return left.path == right.path && left.url == right.url && hasFile == right.file.has_value() &&
           (!hasFile ||
            (left.file->volume == right.file->volume && left.file->identifier == right.file->identifier)) &&
           ksw::Data(left.handle.begin(), left.handle.end()) == ksw::Data(right.handle.begin(), right.handle.end());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ksw::Data bookmark(data, data + size);
    const ksw::Result<BookmarkContent> content = readBookmark(bookmark);
    const bool isBookmark = content.ok();
    require(__ksw_matchBookmark(bookmark, bookmark, ksw::kBookmarkMatchPath) == isBookmark);
    if (!isBookmark) {
        require(content.error().domain() == ksw::kFormatErrorDomain &&
                content.error().localizedDescription().starts_with("bookmark: "));
        require(!__ksw_isFileBookmark(bookmark) && !__ksw_displayName(bookmark));
        return 0;
    }
    require(size <= ksw::limits::kBookmarkMax && content->path.size() <= ksw::limits::kBookmarkPathMax);
    const ksw::Dictionary values = recordedValues(*content);
    const ksw::Result<ksw::Data> written = writeBookmark(*content, values);
    if (written && written->size() <= ksw::limits::kBookmarkMax) {
        const ksw::Result<BookmarkContent> again = readBookmark(*written);
        require(again.ok() && isSame(*content, *again) && recordedValues(*again).size() == values.size());
    }
    // Without a file nothing is looked for but a name: one of a path has one in that.
    if (!content->path.empty()) {
        require(__ksw_displayName(bookmark).has_value());
    }
    return 0;
}
