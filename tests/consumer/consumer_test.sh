#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Uses the installed library as an outside program does.
# usage: consumer_test.sh BUILD-FOLDER CXX SOURCE-FOLDER
set -euo pipefail
export CMAKE_GENERATOR=Ninja
build=$1 cxx=$2 source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
expected="$version $(printf %.1f "${version%.*}") 3 4 2"  # of the program below
flags=(-std=c++20 -Wall -Wextra -Wpedantic -Werror)

fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null

echo "each public header compiles alone"
# As does one that another begins with.
begins_with() { sed -n '/^#include/{s/.*<\(.*\)>.*/\1/p;q}' "$1"; }
(cd "$prefix/include" && ls MorvaneOperation/*.h |
    grep -vxF "$(for header in MorvaneOperation/*.h; do begins_with "$header"; done)") |
    prefix=$prefix cxx=$cxx flags="${flags[*]}" xargs -P 2 -n 1 sh -c '
        echo "#include <$1>" | "$cxx" $flags -fsyntax-only -I"$prefix/include" -x c++ - ||
            { echo "$1 needs something that it does not include" >&2; exit 1; }' compile ||
    fail "a public header does not compile alone"
echo '#include <MorvaneOperation/acl_perms.h>
int main(void) { return acl_perms[0].name == 0; }' |
    cc -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$prefix/include" -x c - ||
    fail "acl_perms.h is not for C"

echo "a program outside finds the package, links and runs"
mkdir "$work/outside"
cat >"$work/outside/main.cpp" <<'CPP'
#include <MorvaneOperation/MorvaneOperation.h>

#include <cstdio>

int main() {
    int groups = 0;
    for (const auto* group = morvane::acl_perms; group->name; ++group) ++groups;
    const auto entry = morvane::MVAclEntry::newEntryForDirectory(true);
    std::printf("%s %.1f %d %zu %d\n", MorvaneOperationVersionString, MorvaneOperationVersionNumber,
                groups, entry->permissions().size(), static_cast<int>(entry->permissionGroup()));
}
CPP
cat >"$work/outside/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(outside CXX)
find_package(MorvaneOperation ${version%.*} REQUIRED)
add_executable(outside main.cpp)
target_link_libraries(outside MorvaneOperation::MorvaneOperation)
CMAKE
cmake -S "$work/outside" -B "$work/outside/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/outside/build" >/dev/null
[ "$("$work/outside/build/outside")" = "$expected" ] || fail "the package's program printed something else"

# pkg-config finds the prefix, which was chosen at the installation, from where the file lies.
pc=$(find "$prefix" -name morvaneoperation.pc)
libdir=$(dirname "$(dirname "$pc")")
"$cxx" -std=c++20 "$work/outside/main.cpp" -o "$work/by-pkg-config" \
    $(PKG_CONFIG_PATH=${pc%/*} pkg-config --cflags --libs morvaneoperation)
[ "$(LD_LIBRARY_PATH=$libdir "$work/by-pkg-config")" = "$expected" ] ||
    fail "pkg-config's program printed something else"

unset MORVANE_LIBEXEC_DIR
echo "the installed morvane finds its service and the library its module, also after they were moved"
touch "$work/file"
for command in acl size; do
    "$prefix/bin/morvane" $command "$work/file" >/dev/null || fail "the installed morvane does not run $command"
done
mv "$prefix" "$work/moved"
for command in acl size; do
    "$work/moved/bin/morvane" $command "$work/file" >/dev/null || fail "the moved morvane does not run $command"
done
mv "$work/moved" "$prefix"

echo "what is installed names the prefix that was chosen"
grep -q "^ExecStart=.*$prefix/libexec/morvaneoperation/" \
    "$prefix"/share/morvaneoperation/*.PrivilegedHelper.service || fail "the unit starts a program elsewhere"
grep -q "exec.path\">$prefix/libexec/morvaneoperation/morvane-install-helper<" \
    "$prefix"/share/polkit-1/actions/*.InstallHelper.policy || fail "the policy is for an installer elsewhere"
for page in morvane-install-helper io.github.morvaneoperation.PrivilegedHelper; do
    grep -q "^\.B $prefix/libexec/morvaneoperation/" "$prefix/share/man/man8/$page.8" ||
        fail "the manual page of $page names a program elsewhere"
done

echo "a host that cannot start a service says which program was looked for where"
mv "$prefix/libexec/morvaneoperation/io.github.morvaneoperation.FileService" "$work/service"
if "$prefix/bin/morvane" acl "$work/file" 2>"$work/errors"; then fail "a list was read without a service"; fi
grep -qF "\"$prefix/libexec/morvaneoperation/io.github.morvaneoperation.FileService\"" "$work/errors" ||
    fail "morvane said $(cat "$work/errors")"
mv "$work/service" "$prefix/libexec/morvaneoperation/io.github.morvaneoperation.FileService"

echo "the umbrella has every public header"
for header in "$prefix"/include/MorvaneOperation/*.h; do
    name=MorvaneOperation/${header##*/}
    [ "$name" = MorvaneOperation/MorvaneOperation.h ] || grep -q "#include <$name>" \
        "$prefix/include/MorvaneOperation/MorvaneOperation.h" || fail "the umbrella lacks $name"
done

echo "an older language is refused in plain words"
for header in MorvaneOperation MVAclEntry; do
    if echo "#include <MorvaneOperation/$header.h>" |
        "$cxx" -std=c++17 -fsyntax-only -I"$prefix/include" -x c++ - 2>"$work/errors"; then fail "C++17 compiles"; fi
    [ "$(grep -c ': error: ' "$work/errors")" = 1 ] && grep -q 'error: .*MorvaneOperation needs C++20' "$work/errors" ||
        fail "C++17 is told $(head -n 20 "$work/errors")"
done

echo "a project has this one as a part of itself, under the same name"
mkdir "$work/inside"
cp "$work/outside/main.cpp" "$work/inside/"
cat >"$work/inside/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(inside CXX)
add_subdirectory($source morvane)
if(TARGET xpc_test)
    message(FATAL_ERROR "the tests of a part were made too")
endif()
add_executable(inside main.cpp)
target_link_libraries(inside MorvaneOperation::MorvaneOperation)
CMAKE
cmake -S "$work/inside" -B "$work/inside/build" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null ||
    fail "a project cannot have this one as a part"
if grep -rqsE -- '-Werror|-fuse-ld' "$work/inside/build/CMakeFiles" "$work/inside/build/morvane/platform" \
    --include=flags.make --include=link.txt; then fail "a builder's warnings or linker are chosen here"; fi

echo "the smallest host is built and run outside"
cmake -S "$source/examples/smallest_host" -B "$work/host" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="${flags[*]:1}" >/dev/null
cmake --build "$work/host" >/dev/null
setfacl -m u:daemon:r "$work/file"
[ "$("$work/host/smallest_host" "$work/file" | sort | tr '\n' ' ')" = \
    "$(printf '%s\n' daemon everyone "$(id -un)" "$(id -gn)" | sort | tr '\n' ' ')" ] ||
    fail "the smallest host printed something else"
getfacl -cp "$work/file" | grep -qx 'other::---' || fail "the smallest host saved something else"
getfacl -cp "$work/file" | grep -qx 'user:daemon:r--' || fail "the smallest host has lost daemon's entry"
if "$work/host/smallest_host" "$work/no" 2>"$work/errors"; then fail "the smallest host read a file that is not there"; fi
[ "$(cat "$work/errors")" = "smallest_host: No such file or directory" ] ||
    fail "the smallest host said $(cat "$work/errors")"

echo "what must not compile does not"
refuse() {
    if echo "$2" | "$cxx" "${flags[@]}" -fsyntax-only "${@:3}" -x c++ - 2>/dev/null; then fail "$1 compiles"; fi
}
# All but the rooms' use the same header, which is read once.
mkdir -p "$work/read/MorvaneOperation"
echo "#include \"$prefix/include/MorvaneOperation/MorvaneOperation.h\"" >"$work/read/MorvaneOperation/MorvaneOperation.h"
"$cxx" "${flags[@]}" -I"$prefix/include" -x c++-header "$work/read/MorvaneOperation/MorvaneOperation.h" \
    -o "$work/read/MorvaneOperation/MorvaneOperation.h.gch"
public=(-I"$work/read" -I"$prefix/include")
refuse "copying a connection" '#include <MorvaneOperation/MorvaneOperation.h>
void f(morvane::NSXPCConnection& c) { auto copy = c; }' "${public[@]}"
refuse "copying an entry" '#include <MorvaneOperation/MorvaneOperation.h>
void f(morvane::MVAclEntry& e) { auto copy = e; }' "${public[@]}"
connector='#include <MorvaneOperation/MorvaneOperation.h>
using namespace morvane;
struct Host : MVConnector {
    using MVConnector::MVConnector;
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }
};
struct WithoutClass : MVConnector { using MVConnector::MVConnector; };
struct WithoutClassObject : MVConnector {
    using MVConnector::MVConnector;
    const NSClass& objectClass() const override { return MVConnector::classObject(); }
};
struct WithoutObjectClass : MVConnector {
    using MVConnector::MVConnector;
    static const NSClass& classObject();
};
struct Heir : Host { using Host::Host; static const NSClass& classObject(); };
'
echo "$connector auto a = MVConnector::init<Host>();
struct Named : MVConnector {
    Named(Creation c, int) : MVConnector(c) {}
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }
};
auto b = MVConnector::initWithQueueLabel<Named>(nullptr, 1);
auto c = MVConnector::init();" | "$cxx" "${flags[@]}" -fsyntax-only "${public[@]}" -x c++ - ||
    fail "a connector cannot be made by its factory"
refuse "making the abstract connector" "$connector auto c = std::make_shared<MVConnector>();" "${public[@]}"
refuse "making a connector past its factory" "$connector auto c = std::make_shared<Host>();" "${public[@]}"
refuse "constructing a connector from nothing" "$connector auto* c = new Host({});" "${public[@]}"
refuse "making what constructs a connector" "$connector auto* c = new Host(MVConnector::Creation());" "${public[@]}"
for forgotten in WithoutClass WithoutClassObject WithoutObjectClass Heir; do
    refuse "a connector that does not name itself ($forgotten)" \
        "$connector auto c = MVConnector::init<$forgotten>();" "${public[@]}"
done
refuse "making an authorization past its factory" '#include <MorvaneOperation/MorvaneOperation.h>
auto a = std::make_shared<morvane::MVAuthorization>();' "${public[@]}"
refuse "constructing an authorization from nothing" '#include <MorvaneOperation/MorvaneOperation.h>
auto* a = new morvane::MVAuthorization({});' "${public[@]}"
refuse "making a size formatter past its factory" '#include <MorvaneOperation/MorvaneOperation.h>
auto* a = new morvane::MVFileSizeInfo({});' "${public[@]}"
acl=(-I"$source/include")
for room in foundation archive dispatch identity host; do acl+=(-I"$build/layers/$room"); done
echo '#include <MorvaneOperation/MVAclEntry.h>' |
    "$cxx" "${flags[@]}" -fsyntax-only "${acl[@]}" -x c++ - || fail "acl/ does not see its own headers"
for wrong in platform/linux/FileDescriptor.h platform/xpc/NSXPCConnection.h MVConnector.h; do
    refuse "acl/ (and lists/) with $wrong" "#include <MorvaneOperation/$wrong>" "${acl[@]}"
done

echo "only what is public is exported"
exported=$(nm -DC --defined-only "$build/libMorvaneOperation.so")
unversioned=$(grep -v '@@MORVANE_1$' <<<"$exported" | grep -v ' A MORVANE_1$' || true)
[ -z "$unversioned" ] || fail "the library exports without its version: $unversioned"
exported=$(sed -n 's/@@MORVANE_1$//p' <<<"$exported")
hidden=$(grep -E "morvane::(PropertyList|FrameReader|Outbox|LinuxStreamSocket|SizeWalker|AuthorizationState)" \
    <<<"$exported" || true)
[ -z "$hidden" ] || fail "the library exports its inside: $hidden"
others=$(grep -vE ' ((vtable|typeinfo|typeinfo name) for |(non-)?virtual thunk to )?morvane::| (acl_[a-z_]+|MorvaneOperationVersion[A-Za-z]+)$' \
    <<<"$exported" || true)
[ -z "$others" ] || fail "the library exports what is not its own: $others"
for symbol in acl_perms acl_read_perms acl_write_perms acl_admin_perms acl_flags \
    MorvaneOperationVersionNumber MorvaneOperationVersionString; do
    grep -q " $symbol$" <<<"$exported" || fail "$symbol is not exported"
done

echo "no include leaves its room"
relative=$(grep -rnE '#include "\.\./' --include='*.h' --include='*.cpp' \
    "$source"/{acl,lists,size,service,client,platform,helpers,cli,include} || true)
[ -z "$relative" ] || fail "a relative include: $relative"
outside=$(grep -rnE '#include <' --include='*.h' --include='*.cpp' "$source"/{acl,lists,size,service,client} |
    grep -vE '<(MorvaneOperation/[^>]+|[a-z_]+)>' || true)
[ -z "$outside" ] || fail "a layer includes a system header: $outside"
