// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// The names of the services and rights of this application: one identifier prefix for all.

namespace morvane {

#define MVApplicationIdentifierPrefix "io.github.morvaneoperation"

/// The private service that works with the user's own rights.
inline constexpr const char* MVFileServiceName = MVApplicationIdentifierPrefix ".FileService";
/// The service that runs as root, and the label under which it is installed.
inline constexpr const char* MVPrivilegedHelperName =
    MVApplicationIdentifierPrefix ".PrivilegedHelper";

/// The rights, one for each privileged operation.
inline constexpr const char* MVRightGetFileAcl = MVApplicationIdentifierPrefix ".GetFileAcl";
inline constexpr const char* MVRightGetFileAccess = MVApplicationIdentifierPrefix ".GetFileAccess";
inline constexpr const char* MVRightSetFileAcl = MVApplicationIdentifierPrefix ".SetFileAcl";
inline constexpr const char* MVRightPropagateFileAcl =
    MVApplicationIdentifierPrefix ".PropagateFileAcl";
inline constexpr const char* MVRightRenameFiles = MVApplicationIdentifierPrefix ".RenameFiles";
inline constexpr const char* MVRightGetFileSize = MVApplicationIdentifierPrefix ".GetFileSize";

}  // namespace morvane
