#!/bin/sh
# SPDX-License-Identifier: MIT
# Sees that no service loads GIO, GObject, ICU or the shared library.
# usage: services_link_test.sh PROGRAM...
for program in "$@"; do
    libraries=$(ldd "$program") || exit 1
    case $libraries in
        *libc.so*) ;;
        *) echo "ldd does not tell the libraries of $program: $libraries"; exit 1 ;;
    esac
    if echo "$libraries" | grep -E 'libgio|libgobject|libicu|libMorvaneOperation'; then
        echo "$program loads what stands above"
        exit 1
    fi
done
