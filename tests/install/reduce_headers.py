#!/usr/bin/env python3
"""Copies the platform's headers without what only the host uses, as a phone's tree may lack it.

usage: reduce_headers.py PLATFORM COPY

What is taken away: clang's annotations, moving of references and asking them for truth,
counts and addresses for tests, and the parts of a parameter set that only its owner needs. A pattern that no longer
matches is an error: the list below must tell what is true.
"""
import pathlib
import re
import shutil
import sys

CUTS = {
    'utils/threads.h': [
        r'#include <kov/annotations.h>\n', r'CAPABILITY\("mutex"\) ', r'SCOPED_CAPABILITY ',
        r' (TRY_ACQUIRE|ACQUIRE|RELEASE|REQUIRES)\(\w*\)', ],
    'utils/RefBase.h': [
        r'    int32_t getStrongCount\(\) const;\n', r'    sp\(sp&& other\).*?\n', r'    wp\(wp&& other\).*?\n',
        r'    explicit operator bool\(\) const.*?\n', r'    bool operator==\(std::nullptr_t\).*?\n',
        r'    /// The object\'s address, for comparison only.*?unsafe_get\(\).*?\n'],
    'camera/CameraParameters.h': [
        r'    explicit CameraParameters\(const String8.*?\n', r'    /// "key=value" pairs.*?String8 flatten.*?\n',
        r'    /// Replaces the whole set.*?unflatten.*?\n', r'    void setPreviewFrameRate.*?\n', r'    int getPreviewFrameRate.*?\n'],
    'utils/String8.h': [r'    explicit String8\(std::string.*?\n'],
    'utils/String16.h': [r'    explicit String16\(std::u16string.*?\n'],
    'utils/Vector.h': [r'    void push\(T item\).*?\n', r'    void add\(T item\).*?\n', r'    void clear\(\).*?\n'],
}


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    copy = pathlib.Path(sys.argv[2])
    shutil.copytree(sys.argv[1], copy)
    for name, patterns in CUTS.items():
        text = (copy / name).read_text()
        for pattern in patterns:
            text, count = re.subn(pattern, '', text, flags=re.S)
            if not count:
                sys.exit(f'{name} has nothing like {pattern}')
        (copy / name).write_text(text)


main()
