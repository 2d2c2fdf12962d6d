#!/bin/sh
# SPDX-License-Identifier: MIT
# Sees that no program loads at its start what it does not need there.
# usage: links_test.sh LIBRARIES PROGRAM...   (LIBRARIES as for grep -E)
not_wanted=$1
shift
for program in "$@"; do
    libraries=$(ldd "$program") || exit 1
    case $libraries in
        *libc.so*) ;;
        *) echo "ldd does not tell the libraries of $program: $libraries"; exit 1 ;;
    esac
    if echo "$libraries" | grep -E "$not_wanted"; then
        echo "$program loads that at its start"
        exit 1
    fi
done
