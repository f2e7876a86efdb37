// kestrelwood.h: everything that the framework exports.
#pragma once

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWApplications.h>
#include <kestrelwood/KSWAttributions.h>
#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFetchResult.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>
#include <kestrelwood/KSWList.h>
#include <kestrelwood/KSWLoginItem.h>
#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWRegistrar.h>
#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/KSWUserSettings.h>
#include <kestrelwood/authorization.h>
#include <kestrelwood/code.h>
#include <kestrelwood/code_signing.h>
#include <kestrelwood/ksw_subsystem.h>
#include <kestrelwood/resource_keys.h>
#include <kestrelwood/service_connection.h>
#include <kestrelwood/values.h>
