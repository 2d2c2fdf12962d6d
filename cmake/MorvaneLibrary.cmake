# The one shared library, and the same objects as an archive for the tests that look inside.
get_property(layers GLOBAL PROPERTY MORVANE_LAYERS)
set(objects ${layers})
list(TRANSFORM objects REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>")

add_library(MorvaneOperation SHARED ${objects})
add_library(morvane_internal STATIC ${objects})
foreach(target MorvaneOperation morvane_internal)
    target_link_libraries(${target} PRIVATE Threads::Threads ${MORVANE_SYSTEM_LIBRARIES})
endforeach()
target_link_libraries(morvane_internal INTERFACE ${layers})
# Calls within the library are direct ones.
target_link_options(MorvaneOperation PRIVATE -Wl,-Bsymbolic-functions)
set_target_properties(MorvaneOperation PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1)
if(NOT MORVANE_SANITIZE)
    set(exports ${PROJECT_SOURCE_DIR}/cmake/MorvaneOperation.map)
    target_link_options(MorvaneOperation PRIVATE -Wl,-z,defs -Wl,--version-script=${exports})
    set_target_properties(MorvaneOperation PROPERTIES LINK_DEPENDS ${exports})
endif()
