#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Uses the installed library for Qt as an outside program does.
# usage: installed_test.sh BUILD-FOLDER CXX SOURCE-FOLDER
set -euo pipefail
build=$1 cxx=$2 source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
flags=(-std=c++20 -Wall -Wextra -Wpedantic -Werror -fPIC)

fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null
pc=$(dirname "$(find "$prefix" -name morvaneoperation-qt6.pc)")
libdir=$(dirname "$pc")
pkg() { PKG_CONFIG_PATH=$pc pkg-config "$@" morvaneoperation-qt6; }

echo "each header compiles alone, also where signals and slots are no keywords"
for header in "$prefix"/include/MorvaneOperation/qt/*.h; do
    echo "#include <MorvaneOperation/qt/${header##*/}>" |
        "$cxx" "${flags[@]}" -DQT_NO_KEYWORDS -fsyntax-only $(pkg --cflags | sed 's/-I/-isystem /g') -x c++ - ||
        fail "${header##*/} needs something that it does not include"
done

echo "a program outside finds the package, links and runs"
mkdir "$work/outside"
cat >"$work/outside/main.cpp" <<'CPP'
#include <MorvaneOperation/qt/MorvaneAclBoxModel.h>
#include <MorvaneOperation/qt/MorvaneAclModel.h>
#include <MorvaneOperation/qt/MorvaneFileClient.h>

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv) {
    const QCoreApplication app(argc, argv);
    MorvaneFileClient client;
    MorvaneAclModel model;
    auto* const reading = client.readAcl(QUrl::fromLocalFile(app.arguments().at(1)));
    QObject::connect(reading, &MorvaneFileOperation::finished, &app, [&] {
        model.setAcl(reading->answer());
        std::printf("%d %s\n", model.rowCount(), qPrintable(model.index(0, 2).data().toString()));
        QCoreApplication::quit();
    });
    return QCoreApplication::exec();
}
CPP
cat >"$work/outside/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(outside CXX)
find_package(MorvaneOperationQt6 1.0 REQUIRED)
add_executable(outside main.cpp)
target_link_libraries(outside MorvaneOperation::MorvaneOperationQt6)
CMAKE
cmake -G Ninja -S "$work/outside" -B "$work/outside/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/outside/build" >/dev/null
"$cxx" -std=c++20 -fPIC "$work/outside/main.cpp" -o "$work/by-pkg-config" $(pkg --cflags --libs)

unset MORVANE_LIBEXEC_DIR
touch "$work/file"
chmod 640 "$work/file"
for glib in yes no; do
    [ $glib = yes ] && unset QT_NO_GLIB || export QT_NO_GLIB=1
    for program in "$work/outside/build/outside" "$work/by-pkg-config"; do
        printed=$(LD_LIBRARY_PATH=$libdir timeout 60 "$program" "$work/file" 2>&1) || fail "$program ended with $?: $printed"
        [ "$printed" = "3 Read and Write" ] || fail "$program (GLib: $glib) printed $printed"
    done
done

echo "the library has a version in its name, and brings no more of Qt than its core"
needed=$(objdump -p "$libdir/libMorvaneOperationQt6.so" | awk '$1 == "SONAME" || $1 == "NEEDED" { print $2 }' | sort)
for name in libMorvaneOperationQt6.so.1 libMorvaneOperation.so.1 libQt6Core.so.6; do
    grep -qx "$name" <<<"$needed" || fail "$name is not among: $needed"
done
[ "$(grep -c '^libQt6' <<<"$needed")" = 1 ] || fail "it needs $needed"

echo "only what is public is exported, with its version"
others=$(nm -DC --defined-only "$libdir/libMorvaneOperationQt6.so" |
    grep -vE ' ((vtable|typeinfo|typeinfo name) for |non-virtual thunk to )?Morvane.*@@MORVANE_QT_1$| A MORVANE_QT_1$' || true)
[ -z "$others" ] || fail "the library exports what is not its own: $others"

echo "the example is built outside, and used by its keys"
cmake -G Ninja -S "$source/examples/qt" -B "$work/example" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >/dev/null
cmake --build "$work/example" >/dev/null
[ "$(wc -l <"$source/examples/qt/main.cpp")" -lt 150 ] || fail "the example is no longer short"
"$source/tests/qt/example_test.py" "$work/example/permissions_dialog"
