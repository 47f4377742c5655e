"""A camera (kovcam serve) and a browser (headless Chromium) to look at it with."""

import json
import re
import signal
import subprocess
import tempfile
import time
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

QUIET = ('--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking '
         '--disable-component-update --disable-sync --hide-scrollbars --force-prefers-reduced-motion --autoplay-policy=no-user-gesture-required')


class Camera:
    """kovcam serve as a child process, on any free port (or the given one), with a folder of its own."""

    def __init__(self, kovcam, *arguments, port='0'):
        self.folder = tempfile.TemporaryDirectory()
        self.process = subprocess.Popen([kovcam, 'serve', '--port', port, '-o', self.folder.name, *arguments],
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        line = self.process.stdout.readline()
        self.address = re.search(r'https?://\S+?(?=/)', line)[0]

    def ask(self, path, body=None):
        """The answer's JSON; a POST when there is a body."""
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.address + path, data, {'Content-Type': 'application/json'})
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.load(answer)

    def frames(self, seconds):
        """JPEGs of the preview, as long as that."""
        jpegs, rest, end = [], b'', time.monotonic() + seconds
        with urllib.request.urlopen(self.address + '/preview.mjpeg', timeout=20) as stream:
            while time.monotonic() < end:
                rest += stream.read1(65536)
                while (match := re.search(rb'Content-Length: (\d+)\r\n\r\n', rest)) and \
                        len(rest) >= match.end() + int(match[1]):
                    jpegs.append(rest[match.end():match.end() + int(match[1])])
                    rest = rest[match.end() + int(match[1]):]
        return jpegs

    def stop(self):
        """The exit status after a SIGINT."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(60)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdout.close()
        self.folder.cleanup()
        return self.process.returncode


def browser(width, height, *arguments):
    options = webdriver.ChromeOptions()
    options.binary_location = '/usr/bin/chromium'
    for argument in (*QUIET.split(), f'--window-size={width},{height}', *arguments):
        options.add_argument(argument)
    options.set_capability('goog:loggingPrefs', {'browser': 'ALL'})
    driver = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
    driver.set_script_timeout(180)
    resize(driver, width, height)
    return driver


def resize(driver, width, height):
    driver.execute_cdp_cmd('Emulation.setDeviceMetricsOverride',
                           {'width': width, 'height': height, 'deviceScaleFactor': 1, 'mobile': False})
