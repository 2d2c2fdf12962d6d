# SPDX-License-Identifier: MIT
# The one library, shared unless the builder wants an archive, and the same objects as an archive for the tests
# that look inside.
get_property(layers GLOBAL PROPERTY MORVANE_LAYERS)
macro(morvane_objects variable)
    set(${variable} ${ARGN})
    list(TRANSFORM ${variable} REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>")
endmacro()

# A shared library has a desktop's libraries loaded when they are first needed, by a module below its own folder.
set(library_layers ${layers})
set(desktop_layers layer_policy layer_desktop)
if(BUILD_SHARED_LIBS)
    list(REMOVE_ITEM library_layers ${desktop_layers})
    list(APPEND library_layers desktop_loader)
endif()
morvane_objects(objects ${library_layers})
add_library(MorvaneOperation ${objects})
add_library(MorvaneOperation::MorvaneOperation ALIAS MorvaneOperation)
if(BUILD_SHARED_LIBS)
    morvane_objects(objects ${desktop_layers} desktop_module)
    add_library(morvane_desktop MODULE ${objects})
    # The library by its file, so that whoever links the library can have the module built as well.
    target_link_libraries(morvane_desktop PRIVATE $<TARGET_FILE:MorvaneOperation> ${MORVANE_SYSTEM_LIBRARIES})
    add_dependencies(morvane_desktop MorvaneOperation)
    add_library(morvane_desktop_built INTERFACE)
    add_dependencies(morvane_desktop_built morvane_desktop)
    target_link_libraries(MorvaneOperation PRIVATE ${CMAKE_DL_LIBS} INTERFACE $<BUILD_INTERFACE:morvane_desktop_built>)
    set_target_properties(morvane_desktop PROPERTIES PREFIX "" OUTPUT_NAME desktop
        LIBRARY_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:MorvaneOperation>/${MORVANE_MODULES})
else()
    target_link_libraries(MorvaneOperation PRIVATE ${MORVANE_SYSTEM_LIBRARIES})
endif()
target_link_libraries(MorvaneOperation PRIVATE Threads::Threads)

morvane_objects(objects ${layers})
add_library(morvane_internal STATIC ${objects})
target_link_libraries(morvane_internal PRIVATE Threads::Threads ${MORVANE_SYSTEM_LIBRARIES})
target_link_libraries(morvane_internal INTERFACE ${layers})
set_target_properties(MorvaneOperation PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1)
if(BUILD_SHARED_LIBS)
    # Calls within the library are direct ones.
    target_link_options(MorvaneOperation PRIVATE -Wl,-Bsymbolic-functions)
    # Calls within the module too: the library has functions of the same names, which lead to it.
    target_link_options(morvane_desktop PRIVATE -Wl,-Bsymbolic-functions)
endif()
if(BUILD_SHARED_LIBS AND NOT MORVANE_SANITIZE)
    set(exports ${PROJECT_SOURCE_DIR}/cmake/MorvaneOperation.map)
    target_link_options(MorvaneOperation PRIVATE -Wl,-z,defs -Wl,--version-script=${exports})
    set_target_properties(MorvaneOperation PROPERTIES LINK_DEPENDS ${exports})
    target_link_options(morvane_desktop PRIVATE -Wl,-z,defs)
endif()

# What the services have of it: everything but what serves an interface. They carry it with them, so that they start
# at once and load none of the desktop's libraries.
set(service_layers ${layers} headless)
list(REMOVE_ITEM service_layers layer_desktop)
morvane_objects(objects ${service_layers})
add_library(morvane_services STATIC ${objects})
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
