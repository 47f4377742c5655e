// Settings: what the camera sees, how large, how good.
import { byId, element, openDialog } from './dom.js';
import { ask } from './controls.js';
import { readAnswer } from './net.js';
import { on, store, tell } from './store.js';
import { startWebcam, stopWebcam, whyNot } from './webcam.js';

const dialog = byId('settings');
const file = byId('file');
const TITLES = { landscape: 'Landscape', crossing: 'Crossing', portrait: 'Portrait', addme: 'Add me', 'still-life': 'Still life' };
const PICTURE_OPTIONS = { path: 'still|pan-right|pan-left|pan-down|pan-up|wobble', seconds: '8' };

export function openSettings() {
  if (!store.state) return;  // nobody has told yet
  draw();
  openDialog(dialog);
}

// --- The source

const current = () => store.state?.source ?? {};

function choose(body) { return ask('/api/source', { ...body, client: store.client }); }

async function chooseWebcam() {
  try {
    await startWebcam();
  } catch (failure) {
    tell('problem', failure.message);
    return;
  }
  if (!await choose({ push: true })) stopWebcam();
}

async function chooseFile() {
  const [chosen] = file.files;
  file.value = '';
  if (!chosen) return;
  try {
    const answer = await fetch(`/api/files?name=${encodeURIComponent(chosen.name)}`, { method: 'POST', body: chosen });
    const { id } = await readAnswer(answer);
    await choose({ file: id });
  } catch (failure) {
    tell('problem', failure.message);
  }
}
file.addEventListener('change', chooseFile);

function card(title, text, chosen, press, disabled = false) {
  const button = element('button', { class: 'source', type: 'button', 'aria-pressed': String(chosen), disabled }, element('b', {}, title), element('span', {}, text));
  button.onclick = press;
  return button;
}

function drawSources() {
  const source = current();
  const { about } = store;
  const why = whyNot();
  const cards = about.scenes.map((scene) => card(TITLES[scene.name] ?? scene.name, scene.summary,
    source.kind === 'scene' && source.name === scene.name || source.text === `scene:${scene.name}`, () => choose({ scene: scene.name })));
  if (!about.given.startsWith('scene:')) cards.push(card('As started', about.given, source.kind === 'given', () => choose({ given: true })));
  for (const device of about.devices) {
    cards.push(card(device.name, `Camera of the machine, ${device.path}`, source.kind === 'device' && source.name === device.path,
      () => choose({ device: device.path })));
  }
  cards.push(card('This webcam', 'The camera of this browser', source.kind === 'push' && source.client === store.client, chooseWebcam, why !== ''));
  for (const kept of store.state.files) {
    cards.push(card(kept.name, kept.still ? 'A picture of yours' : 'A film of yours', source.kind === 'file' && source.file === kept.id,
      () => choose({ file: kept.id })));
  }
  cards.push(card('A file…', 'A picture or a film of yours', false, () => file.click()));
  byId('sources').replaceChildren(...cards);
  byId('webcam-note').textContent = why;
}

function sceneOptions(source) {
  const name = source.kind === 'scene' ? source.name : source.text?.match(/^scene:([^?]+)/)?.[1];
  return store.about.scenes.find((scene) => scene.name === name)?.options;
}

function drawSourceOptions() {
  const source = current();
  const offered = sceneOptions(source) ?? (source.kind === 'file' && source.options ? PICTURE_OPTIONS : {});
  const chosen = source.options ? { ...source.options } : Object.fromEntries(new URLSearchParams(source.text?.split('?')[1]));
  const apply = (name, value) => {
    chosen[name] = value;
    choose(source.kind === 'file' ? { file: source.file, options: chosen } :
      { scene: source.name?.replace(/^scene:|\?.*/g, ''), options: chosen });
  };
  byId('source-options').replaceChildren(...Object.entries(offered).map(([name, usual]) => {
    const choices = usual.split('|');  // the first is the usual one
    const value = chosen[name] ?? choices[0];
    const input = choices.length > 1 ? select(choices, value) : element('input', { type: 'number', step: 'any', min: '0', value });
    input.onchange = () => input.value && apply(name, input.value);
    return field(name.charAt(0).toUpperCase() + name.slice(1), input);
  }));
}

// --- Sizes, rate, quality

const field = (label, input) => element('label', { class: 'field' }, label, input);

function select(values, chosen) {
  const all = values.includes(chosen) ? values : [chosen, ...values];
  const made = element('select', {}, ...all.map((value) => element('option', { value }, value.replace('x', ' × '))));
  made.value = chosen;
  return made;
}

function drawFields() {
  const { parameters } = store.state;
  const values = (key) => (parameters[`${key}-values`] ?? '').split(',').filter(Boolean);
  const chooser = (label, key) => {
    const input = select(values(key), parameters[key] ?? '');
    input.onchange = () => ask('/api/parameters', { [key]: input.value });
    return field(label, input);
  };
  const quality = element('input', { type: 'range', min: '1', max: '100', value: parameters['jpeg-quality'] ?? '95' });
  const label = element('span', {}, `Picture quality ${quality.value}`);
  quality.oninput = () => { label.textContent = `Picture quality ${quality.value}`; };
  quality.onchange = () => ask('/api/parameters', { 'jpeg-quality': quality.value });
  byId('fields').replaceChildren(chooser('Preview size', 'preview-size'), chooser('Picture size', 'picture-size'),
    chooser('Frames a second', 'preview-frame-rate'), element('label', { class: 'field' }, label, quality));
}

const KEYS = { Space: 'Shutter; hold it for a burst', '← →': 'Mode', F: 'Focus', R: 'Record the preview', M: 'Shutter sound',
  G: 'Gallery', S: 'Settings', D: 'What happens inside', Esc: 'Close' };
byId('keys').append(...Object.entries(KEYS).flatMap(([key, does]) => [
  element('dt', {}, ...key.split(' ').flatMap((one) => [element('kbd', {}, one), ' '])), element('dd', {}, does)]));

let drawn = '';

function draw() {
  const wanted = JSON.stringify([store.state.source, store.state.parameters, store.state.files]);
  if (wanted === drawn && byId('sources').childElementCount) return;
  drawn = wanted;
  const had = document.activeElement?.textContent;
  drawSources();
  drawSourceOptions();
  drawFields();
  // The focus stays where it was, on an element that has been made anew.
  [...dialog.querySelectorAll('.source')].find((one) => had && one.textContent === had)?.focus();
}
on('state', () => { if (dialog.open) draw(); });
byId('open-settings').addEventListener('click', openSettings);
byId('source-chip').addEventListener('click', openSettings);

const nameOf = (source) => {
  const scene = source.text?.match(/^scene:([^?]+)/)?.[1];
  if (scene) return TITLES[scene] ?? scene;
  if (source.kind === 'device') return store.about.devices.find((one) => one.path === source.name)?.name ?? source.name;
  if (source.kind === 'push') return source.client === store.client ? 'This webcam' : source.client ? "Another's webcam" : 'Pushed frames';
  return source.name ?? 'Camera';
};
on('state', () => { byId('source-name').textContent = current().kind ? nameOf(current()) : 'Camera'; });
