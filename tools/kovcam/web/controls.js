// The shutter with its ring, the strip of modes, and what belongs to the mode that is on.
import { byId, element, icon } from './dom.js';
import { modeOf } from './modes.js';
import { post } from './net.js';
import { click, wakeSound } from './sound.js';
import { on, store, tell } from './store.js';
import { previewCanvas } from './viewfinder.js';

const shutter = byId('shutter');
const ring = byId('ring');
const disc = byId('disc');
const strip = byId('strip');
const extras = byId('extras');
const second = byId('second');
const hint = byId('hint');
const count = byId('count');
const sound = byId('sound');

let held = false;

/** What modes may do. Failures are told to the person. */
export const camera = {
  picture: () => ask('/api/picture'),
  command: (name, more = {}) => ask('/api/command', { name, client: store.client, ...more }),
  releaseShutter,
};

export async function ask(path, body = {}) {
  try {
    return await post(path, body);
  } catch (failure) {
    tell('problem', failure.message);
    return null;
  }
}

// --- The shutter

export function pressShutter() {
  wakeSound();
  if (shutter.disabled || held) return;
  if (store.mode.hold) held = true;
  if (!store.mode.hold || store.phase.kind === 'idle') store.mode.press(camera, store.phase);
}

export function releaseShutter() {
  if (!held) return;
  held = false;
  store.mode.release?.(camera, store.phase);
}

shutter.addEventListener('pointerdown', (event) => {
  if (event.button !== 0 || !store.mode.hold) return;
  event.preventDefault();
  shutter.focus({ preventScroll: true });
  shutter.setPointerCapture(event.pointerId);
  pressShutter();
});
for (const end of ['pointerup', 'pointercancel', 'lostpointercapture']) shutter.addEventListener(end, releaseShutter);
// A click of the keyboard or of a screen reader holds as long as the burst lasts.
shutter.addEventListener('click', (event) => {
  if (!store.mode.hold) pressShutter();
  else if (event.detail === 0 && !keyHolds) store.phase.kind === 'capturing' ? camera.command('CONTINUOUS_SHOT_STOP_CAPTURE') : pressShutter();
});
shutter.addEventListener('contextmenu', (event) => event.preventDefault());

let keyHolds = false;

/** The space bar, wherever the focus is, but where it types or presses something else. */
export function shutterKey(down) {
  if (down && !keyHolds) {
    keyHolds = true;
    pressShutter();
  } else if (!down) {
    keyHolds = false;
    if (store.mode.hold) releaseShutter();
  }
}

function discLook(mode, phase) {
  if (phase.kind === 'capturing') return mode.hold ? 'hold' : 'stop';
  return phase.kind === 'armed' ? 'armed' : '';
}

const SMILE = '<svg aria-hidden="true" viewBox="0 0 24 24"><path d="M7.5 14.5c2.2 3.2 6.8 3.2 9 0M8.5 9v.8M15.5 9v.8"/></svg>';

function drawShutter() {
  const { mode, phase } = store;
  const canStop = phase.kind === 'capturing' || phase.kind === 'armed';
  shutter.disabled = !store.connected || phase.kind === 'working' || store.state?.camera !== 'open' ||
    (store.state.takingPicture && !canStop);
  shutter.dataset.look = discLook(mode, phase);
  const label = typeof mode.label === 'function' ? mode.label(phase) : mode.label;
  shutter.setAttribute('aria-label', label ?? 'Shutter');
  shutter.title = `${label ?? 'Shutter'} (Space)`;
  const known = phase.value !== undefined && phase.of > 0;
  const part = known ? Math.min(100, Math.max(0, (100 * phase.value) / phase.of)) : 0;
  shutter.classList.toggle('turning', phase.kind === 'working' && !known);
  shutter.classList.toggle('pulsing', phase.kind === 'armed');
  ring.style.strokeDasharray = shutter.classList.contains('turning') ? '' : `${part} 100`;
  ring.style.opacity = part || shutter.classList.contains('turning') ? 1 : 0;
  const text = mode.disc?.(phase) ?? (phase.kind === 'working' && known && phase.of === 100 ? `${phase.value}%` : '');
  if (mode === modeOf('smile') && phase.kind !== 'working') disc.innerHTML = SMILE;
  else disc.textContent = text;
  count.hidden = !(phase.kind === 'capturing' || (phase.kind === 'working' && mode.hold));
  if (!count.hidden) {
    count.textContent = phase.unit === 'frames' ? `${phase.value} ${phase.value === 1 ? 'frame' : 'frames'}` :
      phase.unit === '%' ? `${phase.count ?? 0} taken` : `${phase.value} of ${phase.of}${phase.kind === 'working' ? ' ready' : ''}`;
  }
  hint.textContent = store.state?.camera === 'open' ? mode.hint?.(phase) ?? '' : '';
  const note = hint.textContent && phase.kind === 'idle' && mode.note?.(store.state);
  if (note) hint.append(element('small', {}, note));
  const other = mode.second?.(phase);
  second.hidden = !other;
  if (other) {
    second.textContent = other.label;
    second.title = other.title ?? other.label;
    second.onclick = () => other.press(camera);
  }
  sound.hidden = phase.sound === undefined;
  sound.setAttribute('aria-pressed', String(Boolean(phase.sound)));
  sound.setAttribute('aria-label', 'Shutter sound');
  sound.title = `Shutter sound ${phase.sound ? 'on' : 'off'} (M)`;
  sound.replaceChildren(icon(phase.sound ? 'sound' : 'mute'));
}

sound.addEventListener('click', () => camera.command('CONTINUOUS_SHOT_SOUND', { arg1: store.phase.sound ? 0 : 1 }));

on('event', (event) => {
  store.mode.after?.(store.phase, event, camera);
  if (event.kind === 'notify' && event.name === 'CONTINUOUS_FRAME_TAKEN' && store.phase.sound) click();
});

// --- What belongs to the mode

/** Rough pictures of the cartoon looks, made of the preview; the camera draws the real ones. */
const LOOK_FILTERS = ['saturate(1.9) contrast(1.25)', 'contrast(1.7) saturate(.55) brightness(1.25)', 'grayscale(1) contrast(1.6) brightness(1.2)',
  'grayscale(1) contrast(6)', 'none'];

let plainView = null;  // the preview before a look was drawn into it

function rememberView() {
  plainView ??= element('canvas', { width: 120, height: 90 });
  plainView.getContext('2d').drawImage(previewCanvas, 0, 0, 120, 90);
}

function drawLooks() {
  const { mode, phase } = store;
  if (!extras.querySelector('.look')) {
    extras.setAttribute('role', 'radiogroup');
    extras.setAttribute('aria-label', 'Look');
    extras.replaceChildren(...mode.looks.map((name, at) => {
      const picture = element('canvas', { width: 120, height: 90 });
      const pen = picture.getContext('2d');
      pen.filter = LOOK_FILTERS[at] ?? 'none';
      if (plainView) pen.drawImage(plainView, 0, 0);
      const look = element('button', { class: 'look', type: 'button', role: 'radio' }, picture, name);
      look.onclick = () => camera.command(mode.lookCommand, { arg1: at });
      return look;
    }));
    walkWithArrows(extras);
  }
  [...extras.children].forEach((look, at) => mark(look, at === phase.look));
}

function drawExtras() {
  const { mode, phase } = store;
  if (mode.looks) return drawLooks();
  extras.removeAttribute('role');
  extras.removeAttribute('aria-label');
  const had = document.activeElement?.closest?.('.extras');
  extras.replaceChildren(...(mode.extras?.(phase) ?? []).map((extra) => {
    const pill = element('button', { class: 'pill', type: 'button' }, icon(extra.icon), extra.label);
    pill.onclick = () => extra.press(camera);
    return pill;
  }));
  if (had) extras.firstElementChild?.focus();
}

// --- The strip of modes

function mark(radio, chosen) {
  radio.setAttribute('aria-checked', String(chosen));
  radio.tabIndex = chosen ? 0 : -1;
}

function walkWithArrows(group) {
  group.onkeydown = (event) => {
    const step = { ArrowLeft: -1, ArrowUp: -1, ArrowRight: 1, ArrowDown: 1 }[event.key];
    if (!step) return;
    event.preventDefault();
    event.stopPropagation();
    const all = [...group.children];
    const next = all[all.indexOf(document.activeElement) + step];
    next?.focus();
    next?.click();
  };
}
walkWithArrows(strip);

function drawStrip() {
  strip.replaceChildren(...store.about.modes.map(({ name, summary }) => {
    const button = element('button', { class: 'mode', type: 'button', role: 'radio', 'data-mode': name, title: summary }, modeOf(name).title);
    button.onclick = () => chooseMode(name);
    return button;
  }));
}

let wished = null;

export async function chooseMode(name) {
  wished = name;
  markMode();
  releaseShutter();
  if (name === 'cartoon') rememberView();
  await ask('/api/mode', { mode: name });
  if (wished === name) wished = null;
  markMode();
}

export function stepMode(step) {
  const names = store.about.modes.map((mode) => mode.name);
  const next = names[names.indexOf(wished ?? store.state.modeName) + step];
  if (next) chooseMode(next);
}

function markMode() {
  const chosen = wished ?? store.state?.modeName;
  for (const button of strip.children) {
    const is = button.dataset.mode === chosen;
    if (is && button.getAttribute('aria-checked') !== 'true') {
      strip.scrollTo({ left: button.offsetLeft - strip.offsetLeft - (strip.clientWidth - button.offsetWidth) / 2 });
    }
    mark(button, is);
  }
}

on('about', drawStrip);
on('state', markMode);
on('state', drawShutter);
on('phase', () => { drawShutter(); drawExtras(); });
on('mode', () => { held = false; extras.replaceChildren(); drawShutter(); drawExtras(); });
on('connection', drawShutter);
