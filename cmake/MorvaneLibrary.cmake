# SPDX-License-Identifier: MIT
# The one library, shared unless the builder wants an archive, and the same objects as an archive for the tests
# that look inside.
get_property(layers GLOBAL PROPERTY MORVANE_LAYERS)
set(objects ${layers})
list(TRANSFORM objects REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>")

add_library(MorvaneOperation ${objects})
add_library(MorvaneOperation::MorvaneOperation ALIAS MorvaneOperation)
add_library(morvane_internal STATIC ${objects})
foreach(target MorvaneOperation morvane_internal)
    target_link_libraries(${target} PRIVATE Threads::Threads ${MORVANE_SYSTEM_LIBRARIES})
endforeach()
target_link_libraries(morvane_internal INTERFACE ${layers})
set_target_properties(MorvaneOperation PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1)
if(BUILD_SHARED_LIBS)
    # Calls within the library are direct ones.
    target_link_options(MorvaneOperation PRIVATE -Wl,-Bsymbolic-functions)
endif()
if(BUILD_SHARED_LIBS AND NOT MORVANE_SANITIZE)
    set(exports ${PROJECT_SOURCE_DIR}/cmake/MorvaneOperation.map)
    target_link_options(MorvaneOperation PRIVATE -Wl,-z,defs -Wl,--version-script=${exports})
    set_target_properties(MorvaneOperation PROPERTIES LINK_DEPENDS ${exports})
endif()

# What the services have of it: everything but what serves an interface. They carry it with them, so that they start
# at once and load none of the desktop's libraries.
set(service_layers ${layers})
list(REMOVE_ITEM service_layers layer_desktop)
list(TRANSFORM service_layers REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>")
add_library(morvane_services STATIC ${service_layers} $<TARGET_OBJECTS:headless>)
target_link_libraries(morvane_services INTERFACE Threads::Threads)

# What programs see of it: its public headers, as they are installed. This build's own programs and a project
# that has this one as a part of itself find them here.
set(public_root ${PROJECT_BINARY_DIR}/layers/public)
file(MAKE_DIRECTORY ${public_root}/MorvaneOperation)
file(CREATE_LINK ${PROJECT_SOURCE_DIR}/platform ${public_root}/MorvaneOperation/platform SYMBOLIC)
target_include_directories(MorvaneOperation INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<BUILD_INTERFACE:${public_root}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(MorvaneOperation INTERFACE cxx_std_20)
# The headers alone, for objects that are linked later.
add_library(morvane_public INTERFACE)
target_include_directories(morvane_public INTERFACE ${PROJECT_SOURCE_DIR}/include ${public_root})
