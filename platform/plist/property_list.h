// property_list.h: property lists as bytes, in the XML and the binary form, to and from values.
// Does no I/O: whoever reads a file bounds its size before it comes here.
#pragma once

#include <kestrelwood/values/data.h>
#include <kestrelwood/values/value.h>

#include "platform/base/result.h"

namespace ksw::plist {

/// The two forms of a property list.
enum class Format { Xml, Binary };

/// The form that the bytes claim to be in: binary when they begin as one, else XML. Says nothing about validity.
Format formatOf(Bytes bytes);

// Reading. The bytes are hostile: one decoding nests at most `limits::kDepthMax` containers, makes at most
// `limits::kObjectsMax` values and keys, no text or byte string longer than `limits::kStringMax`, and takes no
// more heap than `limits::kHeapFactor` times the bytes and `limits::kHeapBase`. Errors are `FormatError` with a
// text that names the place: line and column (in characters) of an XML list, object and offset of a binary one;
// `Malformed` for what is not a property list, `Unsupported` for what has no `Value`, `WrongType` for a key that
// is not a string, `LimitPassed` for a bound, exhausted memory included. The bytes are borrowed for the call.
// Nothing throws. All of these may be called from any thread.

/// Reads either form.
Result<Value> read(Bytes bytes);

/// Reads the XML form: UTF-8 or ASCII, `<plist>` with one value. A document type line is passed over unread; an
/// internal subset, and an entity beyond the five and the numbered characters, are refused.
Result<Value> readXml(Bytes bytes);

/// Reads the binary form. A value that several places share becomes a copy for each.
Result<Value> readBinary(Bytes bytes);

// Writing. Equal values give equal bytes. Errors: `FormatError::Unsupported` for what the form cannot hold (no
// value at all, an `Error`, text that is not UTF-8), `LimitPassed` for what a reader would refuse for its depth,
// its number of values or the length of a text. The error's text names the value by its keys and indices.
// Nothing throws; any thread.

/// Writes the XML form, indented by tabs, without a document type line. Dates are cut to whole seconds; one
/// outside the years 0 to 9999 is refused, and so is a character that XML 1.0 cannot hold.
Result<Data> writeXml(const Value& value);

/// Writes the binary form with the smallest sizes that fit, equal scalars once. A list of tens of thousands of
/// small values can become so compact that a reader's heap for its size does not hold them. A date that is not a
/// finite number is refused.
Result<Data> writeBinary(const Value& value);

}  // namespace ksw::plist
