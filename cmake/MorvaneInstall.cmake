# SPDX-License-Identifier: MIT
# What a program outside needs: the library, its headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS MorvaneOperation EXPORT MorvaneOperationTargets)
if(BUILD_SHARED_LIBS)
    install(TARGETS morvane_desktop LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${MORVANE_MODULES})
endif()
install(DIRECTORY include/MorvaneOperation DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
    FILES_MATCHING PATTERN "*.h")

# The platform headers that the public ones reach.
set(platform_headers
    archive/NSKeyedArchiver.h archive/NSKeyedUnarchiver.h
    dispatch/DispatchQueue.h dispatch/MainLoop.h
    foundation/Export.h foundation/NSColor.h foundation/NSError.h foundation/NSException.h
    foundation/NSImage.h foundation/NSIndexPath.h foundation/NSKeyValueObserving.h
    foundation/NSNotificationCenter.h foundation/NSObject.h foundation/NSTreeNode.h
    foundation/NSUncaughtException.h foundation/NSURL.h foundation/NSUserDefaults.h
    foundation/NSUUID.h foundation/Phrase.h foundation/Result.h
    host/KDLocalizedString.h host/Log.h host/MVIdentities.h
    identity/CBIdentity.h identity/CBIdentityAuthority.h
    security/AuthorizationServices.h security/ProcessRights.h
    xpc/NSXPCCoding.h xpc/NSXPCConnection.h xpc/NSXPCInterface.h xpc/NSXPCListener.h
    xpc/NSXPCProtocol.h xpc/NSXPCRequest.h)
foreach(header ${platform_headers})
    get_filename_component(room ${header} DIRECTORY)
    install(FILES platform/${header}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/MorvaneOperation/platform/${room} COMPONENT development)
endforeach()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/MorvaneOperation)
install(EXPORT MorvaneOperationTargets NAMESPACE MorvaneOperation::
    FILE MorvaneOperationTargets.cmake DESTINATION ${package_folder})
configure_package_config_file(cmake/MorvaneOperationConfig.cmake.in
    ${PROJECT_BINARY_DIR}/MorvaneOperationConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MorvaneOperationConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MorvaneOperationConfig.cmake
    ${PROJECT_BINARY_DIR}/MorvaneOperationConfigVersion.cmake DESTINATION ${package_folder})

# The file says where everything is relative to itself: the prefix may be chosen at the installation.
set(pkgconfig_folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig ${pkgconfig_folder} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH libdir_from_pkgconfig ${pkgconfig_folder} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH includedir_from_pkgconfig ${pkgconfig_folder} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
# An archive leaves to the program's link what a shared library brings itself; its headers need none of that.
if(NOT BUILD_SHARED_LIBS)
    set(pkgconfig_requires "${MORVANE_SYSTEM_PACKAGES}")
endif()
configure_file(cmake/morvaneoperation.pc.in morvaneoperation.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/morvaneoperation.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
