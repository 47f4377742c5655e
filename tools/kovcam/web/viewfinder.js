// The preview: frames are drawn as they come, and the next is asked for when one is painted.
import { on, store, newest } from './store.js';

const stage = document.getElementById('stage');
const finder = document.getElementById('finder');
const canvas = document.getElementById('preview');
const pen = canvas.getContext('2d', { alpha: false });
const ambience = document.getElementById('ambience').getContext('2d', { alpha: false });
const ghost = document.getElementById('ghost');
const reticle = document.getElementById('reticle');
const flash = document.getElementById('flash');

const HEAD = 24;
const ON_THEIR_WAY = 2;  // frames: one is painted while the next travels

/** Numbers of the last second, for the drawer and for measuring. Times are milliseconds. */
export const rate = { frames: [], delays: [], painted: 0, last: null };
let clockOffset = null;  // ours minus the camera's
let bestTrip = Infinity;

let line = null;
let granted = 0;
let begun = 0;  // how often: frames of a line that was lost are owed nothing

export function attach(newLine) { line = newLine; }

/** Asks for frames; called when the line opens and when the page is shown again. */
export function begin() {
  granted = 0;
  begun += 1;
  bestTrip = Infinity;
  clockOffset = null;
  ping();
  grant();
}

function ping() { line.say({ ping: performance.now() }); }
setInterval(() => { if (line?.isOpen && !document.hidden) ping(); }, 2000);

export function pong({ pong, us }) {
  const now = performance.now();
  if (now - pong > bestTrip + 0.2) return;
  bestTrip = Math.min(bestTrip, now - pong);
  clockOffset = (now + pong) / 2 - us / 1000;
}

function grant() {
  if (document.hidden || granted >= ON_THEIR_WAY) return;
  line.say({ ready: ON_THEIR_WAY - granted });
  granted = ON_THEIR_WAY;
}

document.addEventListener('visibilitychange', grant);

export async function show(packet) {
  const of = begun;
  const head = new DataView(packet);
  const number = head.getUint32(0, true);
  const delivered = Number(head.getBigUint64(8, true)) / 1000;
  try {
    const picture = await createImageBitmap(new Blob([new Uint8Array(packet, HEAD)], { type: 'image/jpeg' }));
    draw(picture);
    picture.close();
    requestAnimationFrame(() => {
      another(of);
      setTimeout(() => painted(number, delivered));
    });
  } catch {
    another(of);  // for one that cannot be drawn
  }
}

/** Asked for when the one before reaches the screen: what is drawn sooner than that would be old when it is seen. */
function another(of) {
  if (of !== begun) return;
  granted -= 1;
  grant();
}

function draw(picture) {
  if (canvas.width !== picture.width || canvas.height !== picture.height) {
    canvas.width = picture.width;
    canvas.height = picture.height;
    fit();
  }
  pen.drawImage(picture, 0, 0);
  if (rate.painted % 8 === 0) ambience.drawImage(picture, 0, 0, 16, 12);
}

function painted(number, delivered) {
  const now = performance.now();
  rate.painted += 1;
  rate.last = { number, time: now };
  rate.frames.push(now);
  while (rate.frames[0] < now - 1000) rate.frames.shift();
  if (clockOffset === null) return;
  rate.delays.push(now - (delivered + clockOffset));
  if (rate.delays.length > 300) rate.delays.shift();
}

/** The picture takes all the room that its shape allows. */
function fit() {
  const scale = Math.min(stage.clientWidth / canvas.width, stage.clientHeight / canvas.height);
  finder.style.width = `${Math.round(canvas.width * scale)}px`;
  finder.style.height = `${Math.round(canvas.height * scale)}px`;
}
new ResizeObserver(fit).observe(stage);
fit();

// --- What lies over it

export function flashNow() {
  flash.classList.remove('now');
  void flash.offsetWidth;
  flash.classList.add('now');
}

function placeGhost() {
  const picture = newest();
  const shown = store.mode.ghost?.(store.phase) && picture?.mode === 'addme';
  ghost.hidden = !shown;
  if (shown) {
    const address = `/api/pictures/${picture.id}/file`;
    if (!ghost.src.endsWith(address)) ghost.src = address;
  }
}
on('phase', placeGhost);
on('pictures', placeGhost);
on('mode', () => finder.classList.toggle('mirrored', Boolean(store.mode.mirrored)));

let reticleEnd = 0;

/** Shows where the person tapped; the answer colours it. */
export function showReticle(x, y) {
  clearTimeout(reticleEnd);
  reticle.className = 'reticle';
  reticle.style.left = `${x}px`;
  reticle.style.top = `${y}px`;
  reticle.hidden = true;
  void reticle.offsetWidth;
  reticle.hidden = false;
  reticleEnd = setTimeout(() => { reticle.hidden = true; }, 4000);
}

on('event', (event) => {
  if (event.kind === 'notify' && event.name === 'SHUTTER') flashNow();
  if (event.kind === 'notify' && event.name === 'FOCUS') {
    reticle.classList.add(event.ext1 ? 'sharp' : 'blurred');
    clearTimeout(reticleEnd);
    reticleEnd = setTimeout(() => { reticle.hidden = true; }, 900);
  }
});

export const previewCanvas = canvas;
export const finderBox = finder;
