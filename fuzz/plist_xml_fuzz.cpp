// Reads any bytes as a property list in the XML form: a value, or an error of the format that says what and where.
#include <cstdlib>

#include "platform/plist/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = ksw::plist::readXml({data, size});
    if (!value &&
        (value.error().domain() != ksw::kFormatErrorDomain || value.error().localizedDescription().empty())) {
        std::abort();
    }
    return 0;
}
