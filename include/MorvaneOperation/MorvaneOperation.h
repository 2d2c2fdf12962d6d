// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Everything that the library offers, and its version.

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/MVAclEditor.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/MVAuthorization.h>
#include <MorvaneOperation/MVConnectResponder.h>
#include <MorvaneOperation/MVConnector.h>
#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVFileConnector.h>
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/MVFileResponse.h>
#include <MorvaneOperation/MVFileSizeInfo.h>
#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/MVObservation.h>
#include <MorvaneOperation/MVOperationError.h>
#include <MorvaneOperation/MVServiceNames.h>
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/Nfs4Acl.h>
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/ResolvedUrl.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/foundation/Export.h>

extern "C" {
/// The version of the library that is loaded: major and minor as a number, and all of it as text.
MORVANE_EXPORT extern const double MorvaneOperationVersionNumber;
MORVANE_EXPORT extern const char MorvaneOperationVersionString[];
}
