# SPDX-License-Identifier: MIT
# morvane_layer(NAME [ROOM FOLDER] SOURCES ... USES ...)
#
# One layer of the library: an object library that sees its own headers and those of the layers
# it uses, and no others. The headers of platform/ROOM are found only under
# <MorvaneOperation/platform/ROOM/...>, through an include root of that room's own, so a wrong
# include does not build. Layers that share the headers of one folder name it as their ROOM.
function(morvane_layer name)
    cmake_parse_arguments(PARSE_ARGV 1 LAYER "" "ROOM" "SOURCES;USES")
    list(TRANSFORM LAYER_USES PREPEND layer_)
    add_library(layer_${name} OBJECT ${LAYER_SOURCES})
    target_link_libraries(layer_${name} PUBLIC ${LAYER_USES} Threads::Threads)
    # Nobody else's function takes the place of the library's, so a call within a file may become a part of its caller.
    target_compile_options(layer_${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)
    get_filename_component(parent ${CMAKE_CURRENT_SOURCE_DIR} DIRECTORY)
    get_filename_component(folder ${parent} NAME)
    if(folder STREQUAL "platform")
        if(NOT LAYER_ROOM)
            set(LAYER_ROOM ${name})
        endif()
        set(root ${PROJECT_BINARY_DIR}/layers/${LAYER_ROOM})
        file(MAKE_DIRECTORY ${root}/MorvaneOperation/platform)
        file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/MorvaneOperation/platform/${LAYER_ROOM} SYMBOLIC)
        target_include_directories(layer_${name} PUBLIC ${root})
    else()
        target_include_directories(layer_${name} PUBLIC ${PROJECT_SOURCE_DIR}/include)
    endif()
    set_property(GLOBAL APPEND PROPERTY MORVANE_LAYERS layer_${name})
endfunction()
