"""The camera's page measured in headless Chromium, in one go.

    camera_page.py KOVCAM

For each preview size: frames a second that the page draws, and the time from the delivery of a frame by the adaptor to
the end of its paint, by the times that frames carry and a clock that the page keeps in step with the camera's. Then the
part of a core that the server takes, with the page alone and with ten further viewers that read all frames.
"""

import os
import statistics
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'tests', 'web'))
from page import Camera, browser  # noqa: E402

SECONDS = 10
VIEWERS = 10


def used_seconds(pid):
    with open(f'/proc/{pid}/stat') as file:
        fields = file.read().rsplit(') ', 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf('SC_CLK_TCK')


def measure(kovcam, size):
    camera = Camera(kovcam, '-i', 'scene:still-life', '--preview-size', size)
    page = browser(1440, 900)
    try:
        page.get(camera.address)
        time.sleep(4)
        pid = camera.process.pid
        page.execute_script('kovcam.rate.delays.length = 0; kovcam.rate.painted = 0')
        begin, used = time.monotonic(), used_seconds(pid)
        time.sleep(SECONDS)
        took = time.monotonic() - begin
        alone = (used_seconds(pid) - used) / took
        painted, delays = page.execute_script('return [kovcam.rate.painted, kovcam.rate.delays]')
        viewers = [threading.Thread(target=camera.frames, args=(SECONDS + 2,)) for _ in range(VIEWERS)]
        for viewer in viewers:
            viewer.start()
        time.sleep(1)
        begin, used = time.monotonic(), used_seconds(pid)
        time.sleep(SECONDS)
        crowd = (used_seconds(pid) - used) / (time.monotonic() - begin)
        for viewer in viewers:
            viewer.join()
    finally:
        page.quit()
        camera.stop()
    delays.sort()
    print(f'{size}: {painted / took:.1f} frames a second, delivery to paint {statistics.median(delays):.1f} ms median, '
          f'{delays[int(len(delays) * 0.95)]:.1f} ms 95 %; server {100 * alone:.1f} % of a core with the page alone, '
          f'{100 * (crowd - alone) / VIEWERS:.2f} % for each further viewer')


print(f'{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f}')
for preview_size in ('640x480', '1280x720'):
    measure(sys.argv[1], preview_size)
