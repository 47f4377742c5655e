// For the curious: everything that crosses the camera's interface, as it happens, and a way to send a command.
import { byId, element } from './dom.js';
import { post } from './net.js';
import { on, store } from './store.js';
import { rate } from './viewfinder.js';

const drawer = byId('drawer');
const opener = byId('open-drawer');
const lines = byId('lines');
const filter = byId('filter');
const MOST = 1500;
const KINDS = ['call', 'command', 'result', 'notify', 'data', 'frames', 'inner', 'log', 'saved', 'problem'];
const shownKinds = new Set(KINDS.filter((kind) => kind !== 'frames' && kind !== 'inner'));

let kept = [];     // all lines, whether shown or not
let waiting = [];  // that came since the last drawing
let line = null;

export function attachDrawer(newLine) {
  line = newLine;
  if (!drawer.hidden) line.say({ everything: true });
}

const kindOf = (event) => (event.name === 'PREVIEW_FRAME' ? 'frames' : event.kind);

function textOf(event) {
  const { id, t, kind, name, type, ...more } = event;
  if (kind === 'log') return `${event.priority} ${event.tag}: ${event.text}`;
  if (kind === 'problem') return event.text;
  if (kind === 'inner') return `${event.library} ${name}(${event.arguments ?? ''})${event.result ? ` = ${event.result}` : ''}`;
  // Arguments that are 0 are seldom anything.
  const numbers = (one, two) => (two ? ` ${one} ${two}` : one ? ` ${one}` : '');
  if (kind === 'command') return `${event.code} ${name}${numbers(event.arg1, event.arg2)}`;
  if (kind === 'notify') return `${type} ${name}${numbers(event.ext1, event.ext2)}${event.reason ? ` ${event.reason}` : ''}`;
  if (kind === 'data') return `${type} ${name} ${event.size} bytes`;
  const rest = Object.entries(more).map(([key, value]) => (key === 'text' ? value : `${key} ${value}`)).join(', ');
  return [name, rest].filter(Boolean).join('  ');
}

/** An event as an item of a list. */
export function eventLine(event) {
  const wrong = event.kind === 'log' && 'EF'.includes(event.priority) || event.status < 0;
  return element('li', { class: wrong ? `${event.kind} error` : event.kind },
    element('time', {}, event.t.toFixed(2)), element('b', {}, event.kind), element('span', {}, textOf(event)));
}

const isShown = (event) => shownKinds.has(kindOf(event)) &&
  (!filter.value || `${event.kind} ${textOf(event)}`.toLowerCase().includes(filter.value.toLowerCase()));

function drawWaiting() {
  const news = waiting.filter(isShown).slice(-MOST);
  waiting = [];
  if (!news.length) return;
  const atEnd = lines.scrollTop + lines.clientHeight > lines.scrollHeight - 30;
  lines.append(...news.map(eventLine));
  while (lines.childElementCount > MOST) lines.firstElementChild.remove();
  if (atEnd) lines.scrollTop = lines.scrollHeight;
}

function drawAgain() {
  lines.replaceChildren();
  waiting = kept.slice();
  drawWaiting();
  lines.scrollTop = lines.scrollHeight;
}

on('line', (event) => {
  kept.push(event);
  if (kept.length > 2 * MOST) kept = kept.slice(-MOST);
  if (!drawer.hidden) waiting.push(event);
});
setInterval(() => {
  if (drawer.hidden) return;
  drawWaiting();
  const delays = [...rate.delays].sort((a, b) => a - b);
  const middle = delays[Math.floor(delays.length / 2)];
  byId('rate').textContent = `${rate.frames.length} fps${middle === undefined ? '' : ` · ${Math.round(middle)} ms`}`;
}, 250);
filter.addEventListener('input', drawAgain);

byId('kinds').append(...KINDS.map((kind) => {
  const button = element('button', { class: 'kind', type: 'button', 'aria-pressed': String(shownKinds.has(kind)) }, kind);
  button.onclick = () => {
    if (!shownKinds.delete(kind)) shownKinds.add(kind);
    button.setAttribute('aria-pressed', String(shownKinds.has(kind)));
    drawAgain();
  };
  return button;
}));

export function toggleDrawer(open = drawer.hidden) {
  drawer.hidden = !open;
  document.body.classList.toggle('with-drawer', open);
  opener.setAttribute('aria-expanded', String(open));
  line?.say({ everything: open });
  if (open) {
    drawAgain();
    filter.focus();
  } else {
    opener.focus();
  }
}
opener.addEventListener('click', () => toggleDrawer());
byId('close-drawer').addEventListener('click', () => toggleDrawer(false));
drawer.addEventListener('keydown', (event) => {
  if (event.key === 'Escape') toggleDrawer(false);
});

// --- Sending a command

on('about', () => {
  byId('commands').replaceChildren(...store.about.commands
    .filter((command) => !command.name.startsWith('MODE_'))
    .map((command) => element('option', { value: command.name }, `${command.code}: ${command.meaning}`)));
});

byId('send').addEventListener('submit', async (event) => {
  event.preventDefault();
  const name = byId('send-name').value.trim();
  const note = byId('send-note');
  const body = { arg1: Number(byId('send-arg1').value) || 0, arg2: Number(byId('send-arg2').value) || 0, client: store.client };
  if (/^(0x)?[0-9a-f]+$/i.test(name) && !Number.isNaN(Number(name))) body.code = Number(name);
  else body.name = name.toUpperCase();
  try {
    note.textContent = `Status ${(await post('/api/command', body)).status}`;
  } catch (failure) {
    note.textContent = failure.message;
  }
});
