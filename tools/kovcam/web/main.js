// The camera's page: joins the parts, listens to keys and fingers, tells what goes wrong.
import { ask, camera, chooseMode, shutterKey, stepMode } from './controls.js';
import { byId } from './dom.js';
import { attachDrawer, toggleDrawer } from './drawer.js';
import { openGallery } from './gallery.js';
import { Line, sentence } from './net.js';
import { openSettings } from './settings.js';
import { on, receive, store, tell } from './store.js';
import { attach, begin, finderBox, pong, rate, show, showReticle } from './viewfinder.js';
import { attachWebcam, pushed } from './webcam.js';

// The token, if there was one in the address, is a cookie now.
if (location.search) history.replaceState(null, '', location.pathname);

// --- The line to the camera

const line = new Line({
  open() {
    store.connected = true;
    quiet('lost');
    attachDrawer(line);
    begin();
    tell('connection');
  },
  message(message) {
    if (message.pong !== undefined) pong(message);
    else if (message.pushed !== undefined) pushed(message);
    else receive(message);
  },
  frame: show,
  lost(needsToken) {
    store.connected = false;
    tell('connection');
    notice('lost', needsToken ? 'This camera asks for a token. Open the address that kovcam printed when it started.' :
      'The connection to the camera is lost. It comes back by itself as soon as the camera is there.');
  },
});
attach(line);
attachWebcam(line);

// --- What goes wrong

const box = byId('notice');
let noticeEnd = 0;

/** `key`: what the notice is about. One about the connection or the camera stays until that is mended. */
function notice(key, text) {
  clearTimeout(noticeEnd);
  box.textContent = sentence(text);
  box.dataset.key = key;
  box.hidden = false;
  if (key === 'problem') noticeEnd = setTimeout(() => quiet('problem'), 7000);
}

function quiet(key) {
  if (box.dataset.key === key) box.hidden = true;
}
box.addEventListener('click', () => { if (box.dataset.key === 'problem') quiet('problem'); });

on('problem', (text) => { if (box.hidden || box.dataset.key === 'problem') notice('problem', text); });
function drawLamp() {
  const lamp = document.querySelector('.lamp');
  lamp.classList.toggle('on', store.connected && store.state?.camera === 'open');
  lamp.classList.toggle('off', !store.connected || Boolean(store.state?.reason));
}
on('connection', drawLamp);
on('state', () => {
  drawLamp();
  if (store.state.reason) notice('closed', store.state.reason);
  else quiet('closed');
});

// --- Recording

const record = byId('record');
const recordTime = byId('record-time');
const toggleRecording = () => store.state && ask('/api/recording', { on: store.state.recording === null });
record.addEventListener('click', toggleRecording);

function drawRecording() {
  const since = store.state?.recording ?? null;
  record.setAttribute('aria-pressed', String(since !== null));
  record.setAttribute('aria-label', since === null ? 'Record the preview' : 'Stop recording');
  recordTime.hidden = since === null;
  if (since === null) return;
  const seconds = Math.max(0, Math.floor(Date.now() / 1000 - since));
  recordTime.textContent = `${String(Math.floor(seconds / 60)).padStart(2, '0')}:${String(seconds % 60).padStart(2, '0')}`;
}
on('state', drawRecording);
setInterval(drawRecording, 500);

// --- Fingers: a tap focuses, a swipe changes the mode

const stage = byId('stage');
let touch = null;

function focusAt(x, y) {
  showReticle(x, y);
  ask('/api/focus');
}

stage.addEventListener('pointerdown', (event) => { touch = { x: event.clientX, y: event.clientY }; });
stage.addEventListener('pointerup', (event) => {
  if (!touch || !store.state) return;
  const dx = event.clientX - touch.x;
  const dy = event.clientY - touch.y;
  touch = null;
  if (Math.abs(dx) > 60 && Math.abs(dx) > 2 * Math.abs(dy)) return stepMode(dx < 0 ? 1 : -1);
  if (Math.hypot(dx, dy) > 12 || !finderBox.contains(event.target)) return;
  const box = finderBox.getBoundingClientRect();
  focusAt(event.clientX - box.left, event.clientY - box.top);
});
stage.addEventListener('pointercancel', () => { touch = null; });

// --- Keys

const typing = (target) => target.matches('input, select, textarea');
const actions = {
  ArrowLeft: () => stepMode(-1),
  ArrowRight: () => stepMode(1),
  f: () => focusAt(finderBox.clientWidth / 2, finderBox.clientHeight / 2),
  r: toggleRecording,
  m: () => store.phase.sound !== undefined && byId('sound').click(),
  g: openGallery,
  s: openSettings,
  d: () => toggleDrawer(),
};

addEventListener('keydown', (event) => {
  if (event.ctrlKey || event.metaKey || event.altKey || typing(event.target) || document.querySelector('dialog[open]') || !store.state) return;
  const onButton = event.target.closest('button, a') && event.target.id !== 'shutter';
  if (event.key === ' ' && !onButton) {
    event.preventDefault();
    if (!event.repeat) shutterKey(true);
    return;
  }
  const action = actions[event.key.length === 1 ? event.key.toLowerCase() : event.key];
  if (!action || event.repeat) return;
  event.preventDefault();
  action();
});
addEventListener('keyup', (event) => {
  if (event.key !== ' ') return;
  if (event.target.id === 'shutter') event.preventDefault();
  shutterKey(false);
});
addEventListener('blur', () => shutterKey(false));

// For measuring and for tests.
window.kovcam = { store, rate, chooseMode, camera };
