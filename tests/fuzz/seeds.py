#!/usr/bin/env python3
"""Writes the fuzzers' first inputs: ordinary sessions of every mode, small frames for the JPEG encoder, and texts."""
import pathlib
import sys

MODE, COMMAND, FRAME, DATA, PARAMS, CLOCK, FRAMES, OPERATION, THREAD = 0, 1, 2, 3, 8, 10, 13, 7, 9
START, STOP_PREVIEW, TAKE = 0, 1, 2
PICTURE = [DATA, 1, 0, 0]


def command(code, number=0):
    return [COMMAND, code - 999, number, 0]


START_PREVIEW = [OPERATION, START, 0, 0]
SESSIONS = {
    'single': [[MODE, 0, 0, 0], START_PREVIEW, [OPERATION, TAKE, 0, 0], PICTURE, [FRAME, 0, 0, 0]],
    'continuous': [[MODE, 1, 0, 0], START_PREVIEW, command(1026, 1), command(1023), [FRAMES, 12, 100, 0],
                   command(1024), [THREAD, 0, 0, 0], command(1023), [FRAMES, 30, 20, 0], command(1024), command(1025),
                   [THREAD, 0, 0, 0]],
    'panorama': [[MODE, 2, 0, 0], START_PREVIEW, command(1022), command(1019), [FRAMES, 12, 40, 0], command(1019),
                 command(1020), command(1022), command(1019), [FRAMES, 3, 1, 0], command(1020)],
    'smile': [[MODE, 3, 0, 0], START_PREVIEW, command(1017), [FRAMES, 4, 10, 0], command(1017), [FRAMES, 4, 10, 0],
              command(1018), PICTURE],
    'self': [[MODE, 6, 0, 0], START_PREVIEW, [FRAMES, 4, 10, 0], [OPERATION, TAKE, 0, 0], [THREAD, 0, 0, 0],
             [OPERATION, TAKE, 0, 0], [OPERATION, 13, 0, 0]],
    'addme': [[MODE, 9, 0, 0], START_PREVIEW, command(1033), command(1034), [FRAMES, 3, 10, 0], PICTURE,
              command(1035, 1), PICTURE, command(1036), command(1037), command(1038)],
    'action': [[MODE, 10, 0, 0], START_PREVIEW, command(1029), [FRAMES, 5, 10, 0], command(1031), [FRAMES, 2, 10, 0],
               command(1029), [FRAMES, 2, 10, 0], command(1030)],
    'cartoon': [[MODE, 13, 0, 0], START_PREVIEW] + [step for effect in range(6) for step in (
        command(1039, effect), [FRAMES, 2, 10, 0], PICTURE)],
}
# Formats and sizes of the preview, each followed by every mode's session.
PREVIEWS = {'semiplanar': [PARAMS, 0, 0, 2], 'planar': [PARAMS, 0, 1, 4], 'odd': [PARAMS, 4, 0, 1],
            'large': [PARAMS, 3, 0, 2]}

folder = pathlib.Path(sys.argv[1])
for name in ('shots', 'jpeg', 'texts'):
    (folder / name).mkdir(parents=True, exist_ok=True)
for mode, steps in SESSIONS.items():
    for preview, params in PREVIEWS.items():
        front = bytes(byte for step in [params] + steps for byte in step)
        (folder / 'shots' / f'{mode}-{preview}').write_bytes(front + bytes(120))
everything = [step for steps in SESSIONS.values() for step in steps]
(folder / 'shots' / 'everything').write_bytes(bytes(byte for step in everything for byte in step) + bytes(600))
operations = [[MODE, mode, 0, 0] if which < 0 else [OPERATION, which, 0, 0] for mode in (0, 4) for which in range(-1, 21)]
(folder / 'shots' / 'operations').write_bytes(bytes(byte for step in operations for byte in step) + bytes(100))
for width, height, capacity in ((32, 16, 4000), (34, 18, 4000), (2, 2, 1000), (64, 64, 100), (33, 18, 1000)):
    header = b''.join(number.to_bytes(2, 'little') for number in (width, height, capacity))
    (folder / 'jpeg' / f'{width}x{height}-{capacity}').write_bytes(header + bytes(range(97)))

TEXTS = {  # by reader
    0: ['0 mode panorama # wide\n+0.5 start-preview\n1 command PANORAMA_SHOT_INIT 1 0x2\n',
        '0 set preview-size 640x480\n+1 picture\n+0 wait COMPRESSED_IMAGE timeout 5\n', '2 wait 0x100 1\n3 wait FOCUS\n',
        '0 set k "a \\"b\\" c"\r\n\n+1e1 autofocus\n9 stop-preview', '\xef\xbb\xbf1 jump\nsoon picture\n0 mode "'],
    1: ['landscape?direction=left&seconds=3&shake=2', 'crossing?delay=0&seconds=1', 'portrait?neutral=0', 'addme?shake=1e1',
        'still-life', 'nowhere?a=b', 'landscape?seconds=nan&&=1'],
    2: ['landscape|portrait?neutral=1|still-life', 'addme\\|x?shake=2|'],
    3: ['out', 'out/%Y%m%d-{n}.jpg', '{mode}/{n}{word}.jpeg', 'photo.JPG', '-', '', '{x}', '%p'],
    4: ['640x480', '0x1', '1x', '99999999999x2', '-3x4', '1x2x3'],
    5: ['preview-size=640x480;picture-format=jpeg', 'preview-size=x;;=', 'preview-size=5x']}
for reader, texts in TEXTS.items():
    for number, text in enumerate(texts):
        (folder / 'texts' / f'{reader}-{number}').write_bytes(bytes([reader]) + text.encode('latin-1'))
