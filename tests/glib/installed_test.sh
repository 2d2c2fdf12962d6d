#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Uses the installed binding as programs outside do.
# usage: installed_test.sh BUILD-FOLDER LIBRARY-FOLDER PYTHON
set -euo pipefail
build=$1 library=$2 python=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$build" --component glib --prefix "$work/prefix" >/dev/null
pc=$(find "$work/prefix" -name 'morvaneoperation-glib-1.0.pc')
libdir=$(dirname "$(dirname "$pc")")
export PKG_CONFIG_PATH=${pc%/*} LD_LIBRARY_PATH=$libdir:$library LIBRARY_PATH=$library
touch "$work/file"

echo "each header compiles alone, in C and in C++"
for header in "$work"/prefix/include/morvaneoperation-glib-1.0/morvane/*.h; do
    for language in "c -std=c99" "c++ -std=c++11"; do
        echo "#include <morvane/${header##*/}>" |
            cc -x $language - -Wall -Wextra -Wpedantic -Werror -fsyntax-only $(pkg-config --cflags morvaneoperation-glib-1.0) ||
            fail "${header##*/} is not for $language"
    done
done

echo "a program in C links and runs"
cat >"$work/main.c" <<'C'
#include <morvane/morvane.h>

static GMainLoop* loop;

static void come(GObject* source, GAsyncResult* result, gpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(MorvaneAcl) acl =
        morvane_file_client_read_acl_finish(MORVANE_FILE_CLIENT(source), result, &error);
    g_print("%s %u\n", error ? error->message : "read", acl ? g_list_model_get_n_items(G_LIST_MODEL(acl)) : 0);
    g_main_loop_quit(loop);
}

int main(int argc, char** argv) {
    loop = g_main_loop_new(NULL, FALSE);
    g_autoptr(MorvaneFileClient) client = morvane_file_client_new();
    g_autoptr(GFile) file = g_file_new_for_path(argv[argc - 1]);
    morvane_file_client_read_acl_async(client, file, MORVANE_PRIVILEGE_NEVER, NULL, come, NULL);
    g_main_loop_run(loop);
}
C
cc -Wall -Wextra -Wpedantic -Werror "$work/main.c" -o "$work/main" \
    $(pkg-config --cflags --libs morvaneoperation-glib-1.0) -Wl,-rpath-link,"$library"
[ "$("$work/main" "$work/file")" = "read 3" ] || fail "it printed $("$work/main" "$work/file")"

echo "Python finds the introspection data"
typelib=$(dirname "$(find "$work/prefix" -name '*.typelib')")
GI_TYPELIB_PATH=$typelib "$python" -c '
import gi
gi.require_version("MorvaneOperation", "1.0")
from gi.repository import MorvaneOperation
MorvaneOperation.FileClient()' || fail "Python does not"

echo "Vala finds its binding"
share=$work/prefix/share/vala/vapi
echo 'void main() { new Morvane.FileClient(); }' >"$work/main.vala"
valac --quiet --fatal-warnings --vapidir="$share" --pkg=morvaneoperation-glib-1.0 -C -d "$work" "$work/main.vala" ||
    fail "Vala does not"
