// values.h: the value types that the framework's operations take and give. All of them copy, compare and may
// be read from many threads while nobody writes.
#pragma once

#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/date.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/notification.h>
#include <kestrelwood/values/string_constant.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/uuid.h>
#include <kestrelwood/values/value.h>
