"""The camera's page in headless Chromium: every mode from the opened page to a picture that can be decoded.

    camera_test.py KOVCAM FOLDER

Screenshots of every mode at the size of a phone and of a desk are left in FOLDER.
"""

import os
import shutil
import sys
import tempfile
import threading
import time
import unittest
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from page import Camera, browser, resize

KOVCAM, SCREENS = sys.argv[1], sys.argv[2]
PHONE, DESK = (390, 844), (1440, 900)

DECODED = """
const [id, done] = arguments;
fetch(`/api/pictures/${id}/file`).then((answer) => answer.blob()).then(createImageBitmap)
  .then((picture) => done([picture.width, picture.height]), (failure) => done(String(failure)));
"""


def setUpModule():
    """One browser for all tests, with a film of the portrait scene in place of a webcam."""
    film = tempfile.NamedTemporaryFile(suffix='.mjpeg')
    unittest.addModuleCleanup(film.close)
    portrait = Camera(KOVCAM, '-i', 'scene:portrait?neutral=1')
    film.write(b''.join(portrait.frames(4)))
    film.flush()
    portrait.stop()
    PageTest.page = browser(*PHONE, '--use-fake-ui-for-media-stream', '--use-fake-device-for-media-stream',
                            f'--use-file-for-fake-video-capture={film.name}')
    unittest.addModuleCleanup(PageTest.page.quit)


class PageTest(unittest.TestCase):
    """One camera for all tests of a class."""

    source = 'scene:landscape'

    @classmethod
    def setUpClass(cls):
        cls.camera = Camera(KOVCAM, '-i', cls.source, '--picture-size', '1280x960', '--fps', '15')
        cls.addClassCleanup(cls.camera.stop)
        cls.addClassCleanup(cls.page.get, 'about:blank')
        cls.page.get(cls.camera.address)

    def tearDown(self):
        wrong = [entry['message'] for entry in self.page.get_log('browser') if entry['level'] in ('SEVERE', 'WARNING')]
        self.assertEqual([line for line in wrong if not self.expected(line)], [])

    def expected(self, line):
        return False

    def value(self, expression):
        return self.page.execute_script(f'return {expression}')

    def until(self, expression, seconds=120):
        """Waits until an expression of the page is true."""
        end = time.monotonic() + seconds
        while not (value := self.value(expression)):
            if time.monotonic() > end:
                state = self.value('JSON.stringify([kovcam.store.phase, kovcam.store.state?.modeName, '
                                   'document.getElementById("notice").textContent])')
                self.fail(f'"{expression}" did not come true in {seconds} s; the page is at {state}')
            time.sleep(0.05)
        return value

    def choose(self, mode):
        self.until('kovcam.store.state')
        self.find(f'[data-mode={mode}]').click()
        self.until(f'kovcam.store.state.modeName === "{mode}" && !kovcam.store.state.takingPicture && '
                   'kovcam.store.phase.kind === "idle"')
        self.until('kovcam.rate.last?.time > performance.now() - 500')

    def see(self, frames):
        """Waits until the page has shown so many frames more."""
        self.until(f'kovcam.rate.painted >= {self.value("kovcam.rate.painted") + frames}')

    def find(self, selector):
        return self.page.find_element(By.CSS_SELECTOR, selector)

    def phase(self, kind):
        self.until(f'kovcam.store.phase.kind === "{kind}"')

    def pictures(self):
        return self.value('kovcam.store.pictures.length')

    def new_picture(self, before, count=1):
        """The newest, when there are so many more than before; it decodes to the size that it says."""
        self.until(f'kovcam.store.pictures.length >= {before + count}')
        picture = self.value('kovcam.store.pictures.at(-1)')
        size = self.page.execute_async_script(DECODED, picture['id'])
        self.assertEqual(size, [picture['width'], picture['height']])
        self.assertTrue(os.path.exists(os.path.join(self.camera.folder.name, picture['file'])))
        return picture

    def shoot(self):
        before = self.pictures()
        self.find('#shutter').click()
        return self.new_picture(before)

    def screens(self, name):
        for label, size in (('phone', PHONE), ('desk', DESK)):
            resize(self.page, *size)
            self.page.execute_async_script('requestAnimationFrame(() => requestAnimationFrame(arguments[0]))')
            self.page.save_screenshot(os.path.join(SCREENS, f'{name}-{label}.png'))
        resize(self.page, *PHONE)


class ModesTest(PageTest):
    def open(self, scene, mode):
        """How many pictures there are, when the scene is seen in the mode."""
        self.camera.ask('/api/source', {'scene': scene})
        self.choose(mode)
        return self.pictures()

    def capture(self, scene, mode, enough, frames=0):
        """The picture of a capture that is ended, where it does not end itself, so many frames after it has enough."""
        before = self.open(scene, mode)
        self.find('#shutter').click()
        self.phase('capturing')
        self.until(enough)
        self.see(frames)
        self.screens(mode)
        if self.value('kovcam.store.phase.kind') == 'capturing':
            self.find('#shutter').click()
        picture = self.new_picture(before)
        self.phase('idle')
        return picture

    def test_single_takes_a_picture_and_goes_on(self):
        self.open('landscape', 'single')
        self.assertEqual(self.shoot()['width'], 1280)
        self.until('!kovcam.store.state.takingPicture')
        self.see(5)
        self.screens('single')

    def test_burst_lasts_as_long_as_the_shutter_is_held(self):
        before = self.open('crossing', 'continuous')
        hold = ActionChains(self.page, duration=0)
        hold.click_and_hold(self.find('#shutter')).perform()
        self.until('kovcam.store.phase.value >= 3')
        self.screens('continuous')
        ActionChains(self.page, duration=0).release().perform()
        self.phase('idle')
        taken = self.pictures() - before
        self.assertTrue(3 <= taken <= 9, taken)
        self.new_picture(before, taken)

    def test_panorama_is_wide(self):
        picture = self.capture('landscape', 'panorama', 'kovcam.store.phase.value >= 3')
        self.assertGreater(picture['width'], 1.5 * picture['height'])

    def test_action_composes(self):  # perhaps of one more; a busy machine sees the subject seldom
        self.capture('crossing', 'action', 'kovcam.store.phase.count >= 2 || kovcam.store.phase.kind !== "capturing"', 10)

    def test_add_me_shows_the_first_picture_over_the_preview(self):
        self.open('addme', 'addme')
        self.shoot()
        self.until('!document.getElementById("ghost").hidden && document.getElementById("ghost").complete && '
                   'kovcam.store.phase.step === 2 && !kovcam.store.state.takingPicture')
        self.screens('addme')
        self.shoot()
        self.until('document.getElementById("ghost").hidden && kovcam.store.phase.step === 1')

    def test_cartoon_takes_the_look_that_is_chosen(self):
        self.open('portrait', 'cartoon')
        self.find('.look:nth-child(3)').click()
        self.until('kovcam.store.phase.look === 2')
        self.see(4)
        self.screens('cartoon')
        self.shoot()

    def test_self_is_mirrored(self):
        self.open('portrait', 'self')
        self.assertIn('mirrored', self.find('#finder').get_attribute('class'))
        self.assertEqual(self.shoot()['width'], 640)
        self.screens('self')

    def test_what_opens(self):
        self.open('landscape', 'single')
        self.shoot()
        body = self.find('body')
        for key, opened, name in (('s', '#settings', 'settings'), ('g', '#gallery', 'gallery'), ('d', '#drawer', 'drawer')):
            body.send_keys(key)
            self.until(f'document.querySelector("{opened}").checkVisibility()')
            if name == 'drawer':
                self.until('document.querySelectorAll("#lines li").length > 5')
            self.screens(name)
            if name == 'settings':
                self.assertEqual(self.find('#source-options select').get_attribute('value'), 'right')
            if name == 'drawer':
                self.find('#filter').send_keys('takePicture')
                self.until('[...document.querySelectorAll("#lines li")].every((line) => line.textContent.includes("takePicture"))')
            self.check_accessibility(name)
            if name == 'gallery':
                self.find('#album button').click()
                self.until('document.querySelector("#viewer").open')
                self.screens('viewer')
                self.check_accessibility('viewer')
                self.find('#viewer [data-close]').click()
            self.page.switch_to.active_element.send_keys(Keys.ESCAPE)
            self.until(f'!document.querySelector("{opened}").checkVisibility()')
        self.check_accessibility('camera')

    def check_accessibility(self, where):
        """Whatever can be used has a name, in the browser's own tree for assistive programs."""
        nodes = self.page.execute_cdp_cmd('Accessibility.getFullAXTree', {})['nodes']
        used = {'button', 'link', 'radio', 'textbox', 'searchbox', 'combobox', 'spinbutton', 'slider', 'dialog', 'image',
                'radiogroup', 'option'}
        roles = [node for node in nodes if not node['ignored'] and node.get('role', {}).get('value') in used]
        nameless = [node['role']['value'] for node in roles if not node.get('name', {}).get('value', '').strip()]
        self.assertGreater(len(roles), 2, where)
        self.assertEqual(nameless, [], where)

    def test_keys_focus_and_walk(self):
        self.choose('single')
        body = self.find('body')
        body.send_keys('f')
        self.until('document.getElementById("reticle").classList.contains("sharp")')
        body.send_keys(Keys.ARROW_RIGHT)
        self.until('kovcam.store.state.modeName === "continuous"')

    def test_recording_is_a_film(self):
        before = self.pictures()
        begin = time.monotonic()
        self.find('#record').click()
        self.until('kovcam.store.state.recording !== null')
        time.sleep(1)
        self.see(5)
        self.find('#record').click()
        self.until(f'kovcam.store.pictures.length > {before}')
        took = time.monotonic() - begin
        film = self.value('kovcam.store.pictures.at(-1)')
        self.assertEqual((film['type'], film['width']), ('video/mp4', 640))
        seconds = self.page.execute_async_script(
            'const [id, done] = arguments; const film = document.createElement("video"); film.onerror = () => done(-1);'
            'film.onloadedmetadata = () => done(film.duration); film.src = `/api/pictures/${id}/file`', film['id'])
        self.assertTrue(0.8 < seconds < took, (seconds, took))

    def test_two_pages_see_the_same(self):
        first = self.page.current_window_handle
        self.open('still-life', 'addme')
        self.page.switch_to.new_window('tab')
        self.page.get(self.camera.address)
        self.until('kovcam.store.state?.modeName === "addme"')
        self.page.execute_script('kovcam.chooseMode("smile").then(() => kovcam.camera.command("SMILE_SHOT_DETECTION_START"))')
        self.until('kovcam.store.phase.kind === "armed"')
        self.page.close()
        self.page.switch_to.window(first)
        self.until('kovcam.store.state.modeName === "smile" && kovcam.store.phase.kind === "armed"')


class WebcamTest(PageTest):
    """The webcam of the browser as the source: smile takes the picture by itself."""

    source = 'scene:still-life'

    def test_smile_takes_the_picture(self):
        self.camera.ask('/api/source', {'scene': 'portrait', 'options': {'neutral': 60}})
        self.choose('smile')
        self.find('#shutter').click()
        self.phase('armed')
        self.see(6)
        self.screens('smile')
        self.find('#open-settings').click()
        self.find('#settings').find_element(By.XPATH, './/button[contains(., "This webcam")]').click()
        self.until('kovcam.store.state.source?.kind === "push"')
        self.find('#settings [data-close]').click()
        self.phase('idle')
        self.shoot()
        self.phase('idle')


class LostTest(PageTest):
    """What strangers may not, and what happens when the camera goes."""

    source = 'scene:still-life'

    def expected(self, line):
        return 'Failed to' in line or 'WebSocket connection' in line or 'ERR_' in line or 'blocked' in line

    def test_a_page_elsewhere_may_not(self):
        address = self.camera.address
        quiet = type('Quiet', (BaseHTTPRequestHandler,), {'log_message': lambda *_: None})
        elsewhere = ThreadingHTTPServer(('127.0.0.1', 0), quiet)  # answers that it has nothing: a page of another origin
        threading.Thread(target=elsewhere.serve_forever, daemon=True).start()
        self.addCleanup(elsewhere.server_close)
        self.addCleanup(elsewhere.shutdown)
        self.page.get(f'http://localhost:{elsewhere.server_port}/')
        refused = self.page.execute_async_script("""
            const [address, done] = arguments;
            const shown = new Promise((told) => { const image = new Image(); image.onload = () => told('seen');
              image.onerror = () => told('refused'); image.src = `${address}/preview.jpg`; });
            const driven = fetch(`${address}/api/picture`, { method: 'POST', body: '{}' }).then(() => 'driven', () => 'refused');
            const heard = new Promise((told) => { const line = new WebSocket(`${address.replace('http', 'ws')}/live`);
              line.onopen = () => told('heard'); line.onerror = () => told('refused'); });
            Promise.all([shown, driven, heard]).then(done);
            """, address)
        self.assertEqual(refused, ['refused'] * 3)
        self.assertEqual(self.camera.ask('/api/pictures'), [])
        self.page.get(address)

    def test_comes_back_when_the_camera_does(self):
        self.until('kovcam.store.connected')
        port = self.camera.address.rsplit(':', 1)[1]
        self.assertEqual(self.camera.stop(), 0)
        self.until('!document.getElementById("notice").hidden && document.querySelector(".lamp.off")')
        again = Camera(KOVCAM, '-i', 'scene:portrait', port=port)
        self.addCleanup(again.stop)
        self.addCleanup(self.page.get, 'about:blank')  # first
        self.until('kovcam.store.connected && document.getElementById("notice").hidden')
        self.until('kovcam.store.state.source?.text === "scene:portrait" && kovcam.rate.frames.length > 3')


if __name__ == '__main__':
    shutil.rmtree(SCREENS, ignore_errors=True)
    os.makedirs(SCREENS)
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
