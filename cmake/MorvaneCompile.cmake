# SPDX-License-Identifier: MIT
# Warnings and sanitizers, the same for everything that is built here. Whether warnings are errors, and which
# linker is used, is for the builder to choose; the presets that the project is developed with choose both.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
                    -Wconversion -Wno-sign-conversion
                    # GCC 12 warns of its own std::string operator+ at -O3.
                    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
if(CMAKE_UNITY_BUILD)
    # Several files are compiled as one, which takes half the time. (The preset dev compiles each by
    # itself: what a file forgot to include shows there.) Their unnamed namespaces are in no header.
    add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
endif()
if(MORVANE_SANITIZE)
    add_compile_options(-fsanitize=${MORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    # A program in C has the library's part for C++ with it.
    add_link_options(-fsanitize=${MORVANE_SANITIZE} "$<$<LINK_LANG_AND_ID:C,Clang>:-fsanitize-link-c++-runtime;-lstdc++>")
endif()
# For a folder whose code mostly waits for others: making it fast takes half of the time of a build with sanitizers, and
# saves none of that of the tests. Called before the folder's targets are made.
macro(morvane_compile_fast_for_sanitizers)
    if(MORVANE_SANITIZE)
        add_compile_options(-O0)
    endif()
endmacro()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
