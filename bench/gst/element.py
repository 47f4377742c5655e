"""The element in a pipeline, against GStreamer's own test source and against kovcam on the same source.

    element.py PLUGINS KOVCAM

Each is run twice, for fewer and for more frames, and the difference counts: what starting costs is in neither. At 30
frames a second: the part of a core that a frame's way takes. As fast as it goes: frames a second, with the camera's
clock made 100 times faster and the test source not live.
"""

import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

PLUGINS, KOVCAM = sys.argv[1:]
REPEATS = 3


def spent(command, **environment):
    """Seconds of the wall and of the processor that a command takes."""
    begin = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, env={**os.environ, **environment})
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f'element.py: {" ".join(command)} failed')
    return time.monotonic() - begin, usage.ru_utime + usage.ru_stime


def pipeline(source, size, frames, speed):
    width, height = size.split('x')
    text = f'{source} num-buffers={frames} ! video/x-raw,format=NV21,width={width},height={height},framerate=30/1 ! fakesink'
    return (frames, *spent(['gst-launch-1.0', '-q', *text.split()], GST_PLUGIN_PATH=PLUGINS, KOV_CAMERA_SPEED=speed,
                           GST_REGISTRY=os.path.join(folder, 'registry')))


def kovcam(size, frames, speed):
    """As many seconds of a preview as the frames last; the trace tells how many came."""
    script, trace = os.path.join(folder, 'script'), os.path.join(folder, 'trace')
    seconds = frames / 30 if speed == '1' else 3 * frames / fast[1]
    with open(script, 'w') as file:
        file.write(f'0.0 start-preview\n{seconds + 3:.3f} stop-preview\n')
    took = spent([KOVCAM, 'script', script, '-i', SOURCE, '-o', folder, '--preview-size', size, '--trace', trace],
                 KOV_CAMERA_SPEED=speed)
    with open(trace) as file:
        came = sum(1 for line in file if json.loads(line).get('name') == 'PREVIEW_FRAME')
    return (came, *took)


def difference(run, counts):
    """Frames a second and processor milliseconds a frame; the medians."""
    rates, costs = [], []
    for _ in range(REPEATS):
        (few, early, little), (many, late, much) = (run(count) for count in counts)
        rates.append((many - few) / (late - early))
        costs.append(1000 * (much - little) / (many - few))
    return statistics.median(rates), statistics.median(costs)


SOURCE = 'scene:still-life?shake=0'
live = (60, 240)
fast = (600, 3000)
print(f'{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f}; medians of {REPEATS}')
with tempfile.TemporaryDirectory() as folder:
    for size in ('640x480', '1280x720'):
        for name, run in (
                ('videotestsrc', lambda count, speed: pipeline('videotestsrc is-live=' + ('true' if speed == '1' else
                                                                                         'false'), size, count, speed)),
                ('kovcamerasrc', lambda count, speed: pipeline(f'kovcamerasrc source={SOURCE}', size, count, speed)),
                ('kovcam', lambda count, speed: kovcam(size, count, speed))):
            rate, cost = difference(lambda count: run(count, '1'), live)
            most, least = difference(lambda count: run(count, '100'), fast)
            print(f'{size} {name:13} {rate:5.1f} frames a second, {cost:5.2f} ms of a core each ({cost * 3:4.1f} %); '
                  f'as fast as it goes {most:6.0f} a second, {least:5.2f} ms each', flush=True)
