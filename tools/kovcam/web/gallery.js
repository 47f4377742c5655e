// The pictures of this session.
import { byId, element, openDialog } from './dom.js';
import { eventLine } from './drawer.js';
import { readAnswer } from './net.js';
import { modeOf } from './modes.js';
import { finderBox } from './viewfinder.js';
import { newest, on, store, tell } from './store.js';

const button = byId('open-gallery');
const dialog = byId('gallery');
const album = byId('album');
const viewer = byId('viewer');
const frame = byId('viewer-frame');
const WIDE = 2.1;  // width to height, from where a picture is looked at by moving along it

const fileOf = (picture) => `/api/pictures/${picture.id}/file`;
const thumbnailOf = (picture) => `/api/pictures/${picture.id}/thumbnail`;
const titleOf = (picture) => (picture.type === 'video/mp4' ? 'Recording' : modeOf(picture.mode).title);
const isWide = (picture) => picture.width > picture.height * WIDE;
const timeOf = (picture) => new Date(picture.time * 1000).toLocaleTimeString([], { hour: '2-digit', minute: '2-digit', second: '2-digit' });
const sizeOf = (bytes) => (bytes >= 1e6 ? `${(bytes / 1e6).toFixed(1)} MB` : `${Math.max(1, Math.round(bytes / 1e3))} kB`);

// --- The button, and the picture that flies there

function drawButton() {
  const picture = newest();
  if (!picture) return;
  button.replaceChildren(element('img', { src: thumbnailOf(picture), alt: '' }));
  button.setAttribute('aria-label', `Gallery, ${store.pictures.length} ${store.pictures.length === 1 ? 'picture' : 'pictures'}`);
}

async function fly(picture) {
  const from = finderBox.getBoundingClientRect();
  const to = button.getBoundingClientRect();
  if (matchMedia('(prefers-reduced-motion: reduce)').matches || document.hidden) return;
  const image = element('img', { class: 'flying', src: thumbnailOf(picture), alt: '' });
  try { await image.decode(); } catch { return; }
  document.body.append(image);
  const place = (box) => ({ left: `${box.left}px`, top: `${box.top}px`, width: `${box.width}px`, height: `${box.height}px` });
  const flight = image.animate([{ ...place(from), opacity: 0.95 }, { ...place(to), opacity: 0.9 }],
    { duration: 420, easing: 'cubic-bezier(.3,.1,.2,1)' });
  flight.finished.finally(() => image.remove());
}

on('picture', fly);
on('pictures', () => { drawButton(); if (dialog.open) drawAlbum(); });

// --- All of them

function drawAlbum() {
  byId('gallery-count').textContent = store.pictures.length ? `${store.pictures.length} in ${store.about.folder}` : '';
  if (!store.pictures.length) {
    album.replaceChildren(element('p', {}, 'No pictures yet. They appear here as you take them.'));
    return;
  }
  album.replaceChildren(...[...store.pictures].reverse().map((picture) => {
    const tile = element('button', { type: 'button', class: isWide(picture) ? 'wide' : '', 'aria-label': `${titleOf(picture)}, ${timeOf(picture)}` },
      element('img', { src: thumbnailOf(picture), alt: '', loading: 'lazy' }), element('span', { 'aria-hidden': 'true' }, titleOf(picture)));
    tile.onclick = () => openViewer(picture.id);
    return tile;
  }));
}

export function openGallery() {
  drawAlbum();
  openDialog(dialog);
}
button.addEventListener('click', openGallery);

// --- One of them

let shown = 0;
const at = () => store.pictures.findIndex((picture) => picture.id === shown);

function openViewer(id) {
  shown = id;
  const picture = store.pictures[at()];
  if (!picture) return viewer.close();
  frame.classList.toggle('wide', isWide(picture));
  frame.replaceChildren(picture.type === 'video/mp4' ?
    element('video', { src: fileOf(picture), controls: true, autoplay: true, loop: true, playsinline: true }) :
    element('img', { src: fileOf(picture), alt: `${titleOf(picture)}, taken at ${timeOf(picture)}`, draggable: 'false' }));
  byId('viewer-title').textContent = picture.file;
  const save = byId('viewer-save');
  save.href = `${fileOf(picture)}?download`;
  save.download = picture.file;
  const facts = { Mode: titleOf(picture), Time: timeOf(picture), Size: `${picture.width} × ${picture.height}`, File: sizeOf(picture.bytes) };
  byId('viewer-facts').replaceChildren(...Object.entries(facts).map(([name, value]) => element('div', {}, element('dt', {}, name), element('dd', {}, value))));
  const events = byId('viewer-events');
  events.replaceChildren(...picture.events.map(eventLine));
  events.hidden = picture.events.length === 0;
  byId('viewer-before').disabled = at() === store.pictures.length - 1;
  byId('viewer-after').disabled = at() === 0;
  openDialog(viewer);
  events.scrollTop = events.scrollHeight;
}

function step(by) {
  const next = store.pictures[at() + by];
  if (next) openViewer(next.id);
}
byId('viewer-before').addEventListener('click', () => step(1));
byId('viewer-after').addEventListener('click', () => step(-1));

async function remove() {
  const next = store.pictures[at() - 1] ?? store.pictures[at() + 1];
  try {
    await readAnswer(await fetch(`/api/pictures/${shown}`, { method: 'DELETE' }));
    if (next) openViewer(next.id);
    else viewer.close();
  } catch (failure) {
    tell('problem', failure.message);
  }
}
byId('viewer-delete').addEventListener('click', remove);
viewer.addEventListener('close', () => frame.replaceChildren());
viewer.addEventListener('keydown', (event) => {
  const wide = frame.classList.contains('wide') && document.activeElement === frame;
  if (event.key === 'Delete') remove();
  if (event.key === 'ArrowLeft' && !wide) step(1);
  if (event.key === 'ArrowRight' && !wide) step(-1);
});

// A wide picture is moved with the mouse as with a finger.
let grip = null;
frame.addEventListener('pointerdown', (event) => {
  if (event.pointerType !== 'mouse' || event.button !== 0) return;
  grip = { x: event.clientX + frame.scrollLeft, y: event.clientY + frame.scrollTop };
});
frame.addEventListener('pointermove', (event) => {
  if (!grip || !event.buttons) return;
  frame.scrollLeft = grip.x - event.clientX;
  frame.scrollTop = grip.y - event.clientY;
});
frame.addEventListener('pointerup', () => { grip = null; });
