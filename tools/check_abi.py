#!/usr/bin/env python3
"""Tells whether a build of the library keeps its binary interface.

usage: check_abi.py FILE.so PORTING.md

Looks at three things: that the one entry is all that it exports; that it imports from the platform and the closed
libraries nothing but what the lists of docs/porting.md name; and that the virtual tables of the adaptor and of the
shots have the stated operations in the stated slots, in a build that was not stripped. Prints a line for each; the exit
status is 1 when one does not hold.
"""
import re
import subprocess
import sys

from elftools.common.exceptions import ELFError
from elftools.elf.elffile import ELFFile
from elftools.elf.relocation import RelocationSection

ENTRY = 'openKovCameraHardware'
# From slot 2 on; the destructor has the first two.
SLOTS = ('getPreviewHeap getRawHeap setCallbacks enableMsgType disableMsgType msgTypeEnabled startPreview useOverlay '
         'setOverlay stopPreview previewEnabled startRecording stopRecording recordingEnabled releaseRecordingFrame '
         'autoFocus cancelAutoFocus takePicture cancelPicture setParameters getParameters sendCommand release dump').split()
CLASSES = {'KovCameraHardwareInterface': SLOTS, 'ShotCommon': SLOTS + ['setCameraHardware']}
# What every build for Linux imports: the C and C++ runtime, the threads' and the compiler's own.
RUNTIME = re.compile(r'std::|operator (new|delete)|(vtable|typeinfo|VTT) for (__cxxabiv1|std)::|__cxa_|__gxx_|__stack_chk|'
                     r'__tls_get_addr|_Unwind|__aeabi|__errno|_?setjmp|_{0,2}longjmp|(mem|str|v?sn?printf|pthread_|sem_)|__\w+_chk$|'
                     r'_ITM_|__gmon_start__|__libc|(malloc|free|calloc|realloc|abort|clock|getpid|nanosleep|clock_\w+|sqrt|'
                     r'l?round|floor|ceil|pow|exit|usleep|time|gettimeofday|_setjmp|raise|__assert_fail)$')


def demangled(names):
    text = subprocess.run(['c++filt'], input='\n'.join(names), capture_output=True, text=True, check=True).stdout
    return dict(zip(names, text.splitlines()))


def without_arguments(name):
    """android::IMemory::size() const -> android::IMemory::size"""
    return re.sub(r'\(.*', '', name)


def listed_imports(path):
    """The names in the code blocks of the porting guide that begin with the line `imports`."""
    names = set()
    with open(path, encoding='utf-8') as file:
        for block in re.findall(r'```imports\n(.*?)```', file.read(), re.S):
            names.update(line.strip() for line in block.splitlines() if line.strip())
    return names


def slots_of(elf, table, symbols):
    """The functions that a virtual table's words lead to, from its first slot on: the one behind the type's word."""
    pointer = elf.elfclass // 8
    begin, end = table['st_value'], table['st_value'] + table['st_size']
    targets = {}
    for section in elf.iter_sections():
        if not isinstance(section, RelocationSection):
            continue
        for relocation in section.iter_relocations():
            at = relocation['r_offset']
            if not begin <= at < end:
                continue
            if relocation['r_info_sym']:
                targets[at] = elf.get_section(section['sh_link']).get_symbol(relocation['r_info_sym']).name
            else:
                value = relocation['r_addend'] if relocation.is_RELA() else word_at(elf, at, pointer)
                targets[at] = symbols.get(value & ~1)
    words = [targets.get(at) for at in range(begin, end, pointer)]
    typed = next((i for i, name in enumerate(words) if name and name.startswith('_ZTI')), len(words))
    return words[typed + 1:]


def word_at(elf, address, size):
    offset = next(iter(elf.address_offsets(address)))
    elf.stream.seek(offset)
    return int.from_bytes(elf.stream.read(size), 'little' if elf.little_endian else 'big')


def check_slots(elf, say):
    symbols = elf.get_section_by_name('.symtab')
    if not symbols:
        say(True, 'slots: not looked at, the file is stripped')
        return
    named = {symbol.name: symbol for symbol in symbols.iter_symbols() if symbol.name}
    plain = demangled(list(named))
    at = {}
    for name, symbol in named.items():
        if symbol['st_info']['type'] == 'STT_FUNC' or name.startswith('_ZTI'):
            at.setdefault(symbol['st_value'] & ~1, name)
    for owner, expected in CLASSES.items():
        table = next((named[name] for name, text in plain.items() if text == f'vtable for android::{owner}'), None)
        if table is None:
            say(False, f'slots: there is no virtual table of {owner}')
            continue
        slots = slots_of(elf, table, at)[2:2 + len(expected)]
        for slot, (name, wanted) in enumerate(zip(slots, expected), 2):
            text = without_arguments(plain.get(name) or demangled([name])[name]) if name else 'nothing'
            if text.split('::')[-1] != wanted and text != '__cxa_pure_virtual':
                say(False, f'slots: {owner} has {text} in slot {slot}, not {wanted}')
                break
        else:
            say(len(slots) == len(expected), f'slots: {owner} has its {len(expected)} operations in slots 2 to '
                                             f'{len(expected) + 1}')


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    path, guide = sys.argv[1:]
    good = True

    def say(holds, text):
        nonlocal good
        good = good and holds
        print(('ok    ' if holds else 'WRONG ') + text)

    try:
        file = open(path, 'rb')
        elf = ELFFile(file)
    except (OSError, ELFError) as error:
        sys.exit(f'check-abi: {path} cannot be read as a shared library: {error}')
    dynamic = elf.get_section_by_name('.dynsym')
    if not dynamic:
        sys.exit(f'check-abi: {path} has no dynamic symbols; name a shared library')
    exported, imported = set(), set()
    for symbol in dynamic.iter_symbols():
        if not symbol.name or symbol['st_info']['bind'] not in ('STB_GLOBAL', 'STB_WEAK'):
            continue
        (imported if symbol['st_shndx'] == 'SHN_UNDEF' else exported).add(symbol.name)
    exported.discard('KOVCAMERAADAPTOR')
    say(exported == {ENTRY}, f'exports: {", ".join(sorted(exported)) or "nothing"}')
    plain = {without_arguments(text) for text in demangled(sorted(imported)).values()}
    allowed = listed_imports(guide)
    foreign = sorted(name for name in plain - allowed if not RUNTIME.match(name))
    say(not foreign, f'imports: {", ".join(foreign)} not listed' if foreign else
        f'imports: {len(plain & allowed)} names of the platform and the closed libraries, each listed')
    if missing := sorted(allowed - plain):
        print('note  imports: listed and not used by this build: ' + ', '.join(missing))
    check_slots(elf, say)
    needed = [tag.needed for tag in elf.get_section_by_name('.dynamic').iter_tags('DT_NEEDED')]
    print('note  needs ' + ', '.join(needed))
    sys.exit(0 if good else 1)


main()
