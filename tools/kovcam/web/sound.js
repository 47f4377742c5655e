// The click of a burst, made here: a short burst of noise through a filter that falls.
let context = null;

/** Browsers let a page sound only after the person has touched it. */
export function wakeSound() {
  context ??= new AudioContext();
  if (context.state === 'suspended') context.resume();
}

export function click() {
  if (!context || context.state !== 'running') return;
  const length = Math.round(context.sampleRate * 0.06);
  const buffer = context.createBuffer(1, length, context.sampleRate);
  const samples = buffer.getChannelData(0);
  for (let i = 0; i < length; ++i) samples[i] = (Math.random() * 2 - 1) * Math.exp(-i / (length * 0.16));
  const source = context.createBufferSource();
  source.buffer = buffer;
  const filter = context.createBiquadFilter();
  filter.type = 'bandpass';
  filter.frequency.setValueAtTime(3200, context.currentTime);
  filter.frequency.exponentialRampToValueAtTime(900, context.currentTime + 0.05);
  source.connect(filter).connect(context.destination);
  source.start();
}
