// The webcam of this browser as the camera's source: its frames are sent as JPEG.
import { byId } from './dom.js';
import { on, store, tell } from './store.js';

const video = byId('webcam');
const QUALITY = 0.85;
const WIDTH = 1280;

let line = null;
let stream = null;
let answered = true;
let ours = false;  // the camera has our webcam as its source
const canvas = document.createElement('canvas');

export function attachWebcam(newLine) { line = newLine; }

/** Why it cannot be offered, or ''. */
export function whyNot() {
  if (navigator.mediaDevices?.getUserMedia) return '';
  return 'Browsers give their webcam only to this machine itself and to https. Start kovcam serve with --tls-cert and --tls-key to use it from here.';
}

export async function startWebcam() {
  stream = await navigator.mediaDevices.getUserMedia({ video: { width: { ideal: WIDTH }, height: { ideal: 720 }, frameRate: { ideal: 30 } } })
    .catch((failure) => {
      const reason = { NotAllowedError: 'The webcam was refused. Allow it in the address bar, then choose it again.',
        NotFoundError: 'There is no webcam at this machine. Plug one in, then choose it again.',
        NotReadableError: 'The webcam is in use by another program. Close that, then choose it again.' }[failure.name];
      throw new Error(reason ?? `The webcam cannot be used: ${failure.message}`);
    });
  video.srcObject = stream;
  await video.play();
  answered = true;
  each();
}

export function stopWebcam() {
  for (const track of stream?.getTracks() ?? []) track.stop();
  stream = null;
  ours = false;
  video.srcObject = null;
}

function each() {
  if (!stream) return;
  if (video.requestVideoFrameCallback && !document.hidden) video.requestVideoFrameCallback(send);
  else setTimeout(send, 66);
}

async function send() {
  if (stream && answered && line?.isOpen && video.videoWidth) {
    const scale = Math.min(1, WIDTH / video.videoWidth);
    canvas.width = Math.round(video.videoWidth * scale);
    canvas.height = Math.round(video.videoHeight * scale);
    canvas.getContext('2d', { alpha: false }).drawImage(video, 0, 0, canvas.width, canvas.height);
    const blob = await new Promise((done) => canvas.toBlob(done, 'image/jpeg', QUALITY));
    if (blob && line.sendBytes(blob)) answered = false;
  }
  each();
}

/** The camera's answer to a frame. */
export function pushed(message) {
  answered = true;
  if (message.error) tell('problem', message.error);
}

// Another source, also one that another page chose, switches the webcam off. A line that was lost has lost its number.
on('state', () => {
  const source = store.state.source;
  const isOurs = source?.kind === 'push' && source.client === store.client;
  if (stream && ours && !isOurs) stopWebcam();
  ours = stream !== null && isOurs;
});
