// descriptor_limit.h: room for the descriptors that a server's connections take.
#pragma once

#include "platform/base/result.h"

namespace ksw::servers {

/// Asks for a descriptor for each connection that the limits allow, and some for files. Error: fewer are allowed;
/// then as many as are.
Status raiseDescriptorLimit();

}  // namespace ksw::servers
