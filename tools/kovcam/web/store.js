// What the page knows, and who wants to hear of it.
import { modeOf, reduce, startOf } from './modes.js';

export const store = {
  about: null,     // the camera's description: modes, commands, messages, scenes, devices
  state: null,     // as /api/state
  client: 0,       // our number
  pictures: [],    // oldest first
  mode: modeOf('single'),
  phase: startOf(modeOf('single')),
  connected: false,
};

const listeners = new Map();

/** Topics: about, state, mode, phase, picture, pictures, event, line, problem, connection. */
export function on(topic, listener) {
  if (!listeners.has(topic)) listeners.set(topic, []);
  listeners.get(topic).push(listener);
}

export function tell(topic, what) {
  for (const listener of listeners.get(topic) ?? []) listener(what);
}

function setState(state) {
  const before = store.state?.modeName;
  store.state = state;
  if (before !== state.modeName) {
    store.mode = modeOf(state.modeName);
    tell('mode');
  }
  tell('state');
}

/** `live`: it happens now, and was not told to one who came later. */
function take(event, live) {
  tell('line', event);
  if (event.kind === 'log' || event.kind === 'inner' || event.name === 'PREVIEW_FRAME') return;
  // A mode begins with its own command; the state, which names it, may come a moment later.
  if (event.kind === 'command' && event.name.startsWith('MODE_')) {
    const chosen = store.about.modes.find((mode) => mode.code === event.code);
    if (chosen) store.mode = modeOf(chosen.name);
  }
  const before = store.phase;
  store.phase = reduce(store.mode, before, event);
  if (!live) return;
  tell('event', event);
  if (event.kind === 'problem') tell('problem', event.text);
  if (store.phase === before) return;
  if (store.phase.problem && store.phase.problem !== before.problem) tell('problem', store.phase.problem);
  store.phase.problem = undefined;
  tell('phase', event);
}

/** A message of the web socket. */
export function receive(message) {
  if (message.about) {
    store.about = message.about;
    store.client = message.client;
    store.pictures = message.pictures;
    tell('about');
    setState(message.state);
    store.phase = startOf(store.mode);
    for (const event of message.story) take(event, false);
    store.phase.problem = undefined;
    tell('pictures');
    tell('phase');
    return;
  }
  if (message.state) setState(message.state);
  for (const event of message.events ?? []) take(event, true);
  if (message.picture) {
    store.pictures.push(message.picture);
    tell('picture', message.picture);
    tell('pictures');
  }
  if (message.removed) {
    store.pictures = store.pictures.filter((picture) => picture.id !== message.removed);
    tell('pictures');
  }
}

export const newest = () => store.pictures[store.pictures.length - 1];
