#!/bin/sh
# Rebuilds sample.dll from sample.c and sample.rc with the mingw-w64 cross tools. The DLL is committed, so
# the tests need no cross compiler; run this only when the resources change.
set -eu
cd "$(dirname "$0")"
x86_64-w64-mingw32-windres -O coff sample.rc -o sample.res.o
x86_64-w64-mingw32-gcc -shared -s -nostdlib -Wl,--no-insert-timestamp -o sample.dll sample.c sample.res.o \
    -Wl,-e,0
rm -f sample.res.o
