// What each mode means to the person who holds the camera: what the shutter does, and how the adaptor's messages move
// the mode's state. Names and codes come from the camera's own description; only their meaning for a hand is here.
//
// A phase is { kind, value, of, text, ... }:
//   idle       the shutter begins something
//   armed      the mode waits for its moment
//   capturing  frames are being taken; the shutter ends that
//   working    a picture is being made
// `value` of `of` fills the ring, in whatever unit the messages count.

const idle = (more = {}) => ({ kind: 'idle', ...more });
const working = (text, more = {}) => ({ kind: 'working', text, ...more });

/** A still picture of the vendor layer, as most modes take it. */
function still(phase, event) {
  if (event.kind === 'call' && event.name === 'takePicture') return { ...phase, kind: 'working', text: '' };
  if (event.name === 'COMPRESSED_IMAGE' || isRefused(event, 'takePicture')) return idle(keep(phase));
  return phase;
}

const keep = ({ step, front, look, sound, problem }) => ({ step, front, look, sound, problem });
const isRefused = (event, name) => event.kind === 'result' && event.name === name && event.status < 0;
const isCommand = (event, name) => event.kind === 'command' && event.name === name;
const isNotice = (event, name) => event.kind === 'notify' && event.name === name;
const picture = (camera) => camera.picture();

export const MODES = {
  single: {
    title: 'Photo',
    reduce: still,
    press: picture,
    label: 'Take a picture',
  },

  continuous: {
    title: 'Burst',
    start: () => idle({ sound: true }),
    hold: true,
    hint: (phase) => ({ idle: 'Hold the shutter', working: 'Developing the burst' })[phase.kind],
    label: 'Hold for a burst',
    press: (camera) => camera.command('CONTINUOUS_SHOT_START_CAPTURE', { ifLost: 'CONTINUOUS_SHOT_STOP_CAPTURE' }),
    release: (camera) => camera.command('CONTINUOUS_SHOT_STOP_CAPTURE'),
    second: (phase) => phase.kind === 'working' && {
      label: 'Drop', press: (camera) => camera.command('CONTINUOUS_SHOT_TERMINATE', { now: true }),
    },
    // After the ninth frame the burst waits for its stop.
    after: (phase, event, camera) => {
      if (isNotice(event, 'CONTINUOUS_FRAME_TAKEN') && event.ext1 >= event.ext2) camera.releaseShutter();
    },
    reduce(phase, event) {
      if (isCommand(event, 'CONTINUOUS_SHOT_SOUND')) return { ...phase, sound: event.arg1 > 0 };
      if (isCommand(event, 'CONTINUOUS_SHOT_START_CAPTURE')) {
        return { ...keep(phase), kind: 'capturing', value: 0, of: 9, text: '' };
      }
      if (isCommand(event, 'CONTINUOUS_SHOT_TERMINATE') || isNotice(event, 'CONTINUOUS_DELIVERED')) return idle(keep(phase));
      if (isNotice(event, 'CONTINUOUS_FRAME_TAKEN')) return { ...phase, value: event.ext1, of: event.ext2 };
      if (isNotice(event, 'CONTINUOUS_STOPPED')) return working('', { ...keep(phase), value: 0, of: event.ext1 });
      if (event.name === 'COMPRESSED_IMAGE' && phase.kind === 'working') return { ...phase, value: phase.value + 1 };
      return phase;
    },
  },

  panorama: {
    title: 'Panorama',
    hint: (phase) => ({
      idle: 'Start, then sweep the camera slowly',
      capturing: phase.value ? 'Keep sweeping; stop at the end' : 'Sweep slowly to one side',
      working: 'Stitching',
    })[phase.kind],
    label: (phase) => ({ idle: 'Start the panorama', capturing: 'Stop and stitch', working: 'Stitching' })[phase.kind],
    press: (camera, phase) => camera.command(phase.kind === 'idle' ? 'PANORAMA_SHOT_START' : 'PANORAMA_SHOT_STOP'),
    second: (phase) => phase.kind !== 'idle' && {
      label: 'Cancel', press: (camera) => camera.command('PANORAMA_SHOT_CANCEL', { now: true }),
    },
    reduce(phase, event) {
      if (isCommand(event, 'PANORAMA_SHOT_START') && phase.kind === 'idle') {
        return { kind: 'capturing', value: 0, of: 8, unit: 'frames' };
      }
      if ((isCommand(event, 'PANORAMA_SHOT_START') || isCommand(event, 'PANORAMA_SHOT_STOP')) && phase.kind === 'capturing') {
        return working('', { value: 0, of: 100 });
      }
      if (isNotice(event, 'PANORAMA_FRAME_ADDED') && phase.kind === 'capturing') {
        return { ...phase, value: phase.value + 1 };
      }
      if (isNotice(event, 'PANORAMA_PROGRESS')) return working('', { value: event.ext1, of: 100, unit: '%' });
      if (isNotice(event, 'PANORAMA_ERROR')) {
        return idle({ problem: 'The frames do not fit together. Sweep more slowly, over something with more detail.' });
      }
      if (isCommand(event, 'PANORAMA_SHOT_CANCEL') || event.name === 'COMPRESSED_IMAGE') return idle();
      return phase;
    },
  },

  smile: {
    title: 'Smile',
    note: (state) => (state?.smileEngine ? `Smile engine: ${state.smileEngine}` : ''),
    hint: (phase) => ({ idle: 'Arm it, and it waits for a smile', armed: 'Smile, please', working: 'Smile' })[phase.kind],
    label: (phase) => (phase.kind === 'armed' ? 'Stop waiting for a smile' : 'Wait for a smile'),
    press: (camera, phase) =>
      camera.command(phase.kind === 'armed' ? 'SMILE_SHOT_DETECTION_STOP' : 'SMILE_SHOT_DETECTION_START'),
    second: () => ({ label: 'Now', press: picture, title: 'Take the picture now' }),
    reduce(phase, event) {
      if (isCommand(event, 'SMILE_SHOT_DETECTION_START')) return { kind: 'armed' };
      if (isCommand(event, 'SMILE_SHOT_DETECTION_STOP')) return idle();
      if (event.kind === 'call' && event.name === 'startPreview') return idle();  // the engines are made anew
      if (isNotice(event, 'SMILE_DETECTED')) return working('');
      return still(phase, event);
    },
  },

  self: {
    title: 'Self',
    mirrored: true,
    reduce: still,
    press: picture,
    label: 'Take a picture of yourself',
  },

  addme: {
    title: 'Add me',
    start: () => idle({ step: 1 }),
    ghost: (phase) => phase.step === 2,
    hint: (phase) => ({
      idle: phase.step === 1 ? 'First picture: somebody stands on one side' :
        'Change places, line up with the ghost, take the second',
      working: phase.value === undefined ? '' : 'Merging',
    })[phase.kind],
    label: (phase) => (phase.step === 1 ? 'Take the first picture' : 'Take the second picture'),
    disc: (phase) => (phase.kind === 'idle' ? String(phase.step) : ''),
    press: picture,
    second: (phase) => phase.step === 2 && phase.kind === 'idle' && {
      label: 'Restart', press: (camera) => camera.command('ADDME_SHOT_START_CAPTURE'),
    },
    extras: (phase) => [{
      icon: 'swap',
      label: phase.front === undefined ? 'Swap who is in front' :
        phase.front ? 'First person in front' : 'Second person in front',
      press: (camera) => camera.command('ADDME_SHOT_SWITCH_FIRST_PERSON', { arg1: phase.front === 1 ? 0 : 1 }),
    }],
    reduce(phase, event) {
      if (isCommand(event, 'ADDME_SHOT_SWITCH_FIRST_PERSON')) return { ...phase, front: event.arg1 };
      if (['ADDME_SHOT_INIT', 'ADDME_SHOT_START_CAPTURE', 'ADDME_SHOT_CANCEL_CAPTURE', 'ADDME_SHOT_RELEASE']
        .some((name) => isCommand(event, name))) return idle({ ...keep(phase), step: 1 });
      if (isNotice(event, 'ADDME_ERROR')) {
        return { ...phase, refused: true, problem: phase.step === 1 ? 'This picture could not be used. Take it again.' :
          'The second picture does not show the same place. Line up with the ghost and take it again.' };
      }
      if (isNotice(event, 'ADDME_NO_RESULT')) return { ...phase, plain: true };
      if (isNotice(event, 'ADDME_PROGRESS')) return { ...phase, kind: 'working', value: event.ext1, of: 100 };
      if (event.name === 'COMPRESSED_IMAGE') {
        const step = phase.refused ? phase.step : phase.plain && phase.step === 1 ? 2 : 1;
        return idle({ ...keep(phase), step });
      }
      return still(phase, event);
    },
  },

  action: {
    title: 'Action',
    hint: (phase) => ({
      idle: 'Hold still, and start when somebody moves through',
      capturing: 'Hold still; stop when the subject has passed',
      working: 'Composing',
    })[phase.kind],
    label: (phase) => ({ idle: 'Start', capturing: 'Stop and compose', working: 'Composing' })[phase.kind],
    press: (camera, phase) =>
      camera.command(phase.kind === 'idle' ? 'ACTION_SHOT_START_CAPTURE' : 'ACTION_SHOT_STOP_CAPTURE'),
    second: (phase) => phase.kind !== 'idle' && {
      label: 'Cancel', press: (camera) => camera.command('ACTION_SHOT_CANCEL_CAPTURE', { now: true }),
    },
    reduce(phase, event) {
      if (isCommand(event, 'ACTION_SHOT_START_CAPTURE') && phase.kind === 'idle') {
        return { kind: 'capturing', value: 0, of: 100, count: 0, unit: '%' };
      }
      if (isNotice(event, 'ACTION_ACQUISITION_PROGRESS') && phase.kind === 'capturing') return { ...phase, value: event.ext1 };
      if (isNotice(event, 'ACTION_FRAME_ACCEPTED') && phase.kind === 'capturing') return { ...phase, count: phase.count + 1 };
      if (isNotice(event, 'ACTION_CREATION_BEGIN')) return working('', { value: 0, of: 100, unit: '%' });
      if (isNotice(event, 'ACTION_CREATION_PROGRESS')) return working('', { value: event.ext1, of: 100, unit: '%' });
      if (isNotice(event, 'ACTION_CREATION_END') && event.ext1 === 0) {
        return idle({ problem: 'No picture came of it. Let the subject cross the whole view, and hold the camera still.' });
      }
      if (isCommand(event, 'ACTION_SHOT_CANCEL_CAPTURE') || event.name === 'COMPRESSED_IMAGE') return idle();
      return phase;
    },
  },

  cartoon: {
    title: 'Cartoon',
    start: () => idle({ look: 0 }),
    looks: ['Cartoon', 'Sketch', 'Pencil', 'Stamp', 'None'],
    lookCommand: 'CARTOON_SHOT_SELECT_EFFECT',
    press: picture,
    label: 'Take a drawn picture',
    hint: (phase) => (phase.kind === 'working' && phase.value !== undefined ? 'Drawing' : ''),
    reduce(phase, event) {
      if (isCommand(event, 'CARTOON_SHOT_SELECT_EFFECT')) {
        return { ...phase, look: event.arg1 >= 0 && event.arg1 < 4 ? event.arg1 : 4 };
      }
      if (isNotice(event, 'CARTOON_PROGRESS')) return { ...phase, kind: 'working', value: event.ext1, of: 100 };
      return still(phase, event);
    },
  },
};

/** A mode that this page has not met: its commands are in the drawer, its shutter takes pictures. */
const plain = (name) => ({ title: name, reduce: still, press: picture, label: 'Take a picture' });

export const modeOf = (name) => MODES[name] ?? plain(name);
export const startOf = (mode) => (mode.start ? mode.start() : idle());

/** The phase after an event of the story. */
export function reduce(mode, phase, event) {
  if (event.kind === 'command' && event.name.startsWith('MODE_')) return startOf(mode);
  return mode.reduce(phase, event);
}
