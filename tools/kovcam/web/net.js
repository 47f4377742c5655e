// Talking to the camera: requests with answers, and the web socket that brings frames and events.

/** Asks for something; resolves with the answer's JSON, or throws an Error with the camera's own words. */
export async function post(path, body = {}) {
  let answer;
  try {
    answer = await fetch(path, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body),
    });
  } catch {
    throw new Error('The camera does not answer.');
  }
  return readAnswer(answer);
}

export async function readAnswer(answer) {
  const json = await answer.json().catch(() => ({}));
  if (!answer.ok) throw new Error(json.error ? sentence(json.error) : `The camera refuses this (${answer.status}).`);
  return json;
}

export function sentence(text) {
  const first = text.charAt(0).toUpperCase() + text.slice(1);
  return /[.!?]$/.test(first) ? first : `${first}.`;
}

/**
 * The web socket, which opens itself again when it is lost. `on.message(json)`, `on.frame(ArrayBuffer)`,
 * `on.open()`, `on.lost(needsToken)`.
 */
export class Line {
  #socket = null;
  #pause = 250;

  constructor(on) {
    this.on = on;
    this.#open();
  }

  get isOpen() { return this.#socket?.readyState === WebSocket.OPEN; }

  say(message) {
    if (this.isOpen) this.#socket.send(JSON.stringify(message));
  }

  /** Sends bytes, unless those of before are still on their way. False when it did not. */
  sendBytes(bytes) {
    if (!this.isOpen || this.#socket.bufferedAmount > 0) return false;
    this.#socket.send(bytes);
    return true;
  }

  #open() {
    const address = new URL('/live', location.href);
    address.protocol = address.protocol.replace('http', 'ws');
    const socket = new WebSocket(address);
    socket.binaryType = 'arraybuffer';
    socket.onopen = () => {
      this.#pause = 250;
      this.on.open();
    };
    socket.onmessage = ({ data }) => {
      if (typeof data === 'string') this.on.message(JSON.parse(data));
      else this.on.frame(data);
    };
    socket.onclose = async () => {
      const needsToken = await fetch('/api/state').then((answer) => answer.status === 401, () => false);
      this.on.lost(needsToken);
      setTimeout(() => this.#open(), this.#pause);
      this.#pause = Math.min(this.#pause * 1.6, 4000);
    };
    this.#socket = socket;
  }
}
