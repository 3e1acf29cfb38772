// Every command that the receiver knows, as a control: what it sends, what the camera's telemetry
// shows of it, and which cameras and modes have it. A test compares it with docs/protocol.md.
import { focusLimits, focusPercent, focusType, hasBit, isDetected, isFocusedTo, model, number, recording, text } from './camera_state.js';
import { apertureValues, colorValues, evValues, isoValues, options, resolutionValues, shutterValues,
    wbValues } from './control_values.js';

const interchangeable = ['X5', 'X5R']; // lenses with an aperture and a focus ring
const focusing = ['X5', 'X5R', 'Z3'];

/** @param {State} s */
const inVideo = (s) => (text(s, 'camera_mode') === 'video' ? '' : 'only in video mode');
/** @param {State} s */
const inPhoto = (s) => (text(s, 'camera_mode') === 'photo' ? '' : 'only in photo mode');
/** @param {State} s */
const notRecording = (s) => (recording(s) === 'idle' ? '' : 'not while it records');
/** @param {State} s */
const focusedByHand = (s) => (focusType(s) === 'mf' ? '' : 'only in manual focus');
/** @param {number} bit */
const assistant = (bit) => (/** @type {State} */ s) => (focusType(s) === '' ? '' : hasBit(s, 'focus_byte42', bit) ? '1' : '0');
/** @param {...string} programs */
const inProgram = (...programs) => (/** @type {State} */ s) =>
    (programs.includes(text(s, 'image_mode')) ? '' : `only in program ${programs.join(' or ')}`);
/** @param {string} key */
const key = (key) => (/** @type {State} */ s) => text(s, key);
/** @param {string} cmd @param {string} [param] */
const valueOf = (cmd, param) => (/** @type {string} */ value) => ({ cmd, param, value });
/** @param {string} cmd */
const paramOf = (cmd) => (/** @type {string} */ param) => ({ cmd, param });
const recordShown = { idle: 'stop', recording: 'start', starting: 'starting', stopping: 'stopping' };
/** @param {string} on @param {string} off @returns {Option[]} */
const onOff = (on = '1', off = '0') => [{ value: on, label: 'On' }, { value: off, label: 'Off' }];

/** @type {[string, string][]} Groups in their order; capture stands below the picture. */
export const groups = [
    ['capture', 'Capture'],
    ['exposure', 'Exposure'],
    ['picture', 'Picture'],
    ['focus', 'Focus and zoom'],
    ['gimbal', 'Gimbal'],
    ['camera', 'Camera'],
];

/** @type {Control[]} */
export const controls = [
    // Capture
    { id: 'mode', group: 'capture', label: 'Mode', kind: 'choice',
        options: [{ value: 'video', label: 'Video' }, { value: 'photo', label: 'Photo' }],
        shown: key('camera_mode'), unless: notRecording, command: valueOf('camera', 'mode') },
    { id: 'record', group: 'capture', label: 'Record', kind: 'switch',
        options: [{ value: 'start', label: 'Recording' }, { value: 'stop', label: 'Off' }],
        unless: inVideo,
        shown: (s) => (text(s, 'record_state') === '' ? '' : recordShown[recording(s)]),
        command: paramOf('record') },
    { id: 'shot', group: 'capture', label: 'Photo', kind: 'actions', options: [{ value: '', label: 'Shoot' }],
        unless: inPhoto, command: () => ({ cmd: 'shot' }) },
    // Exposure
    { id: 'video_mode', group: 'exposure', label: 'Program', kind: 'choice',
        options: options(['auto', 'shutter', 'aperture', 'manual']).map((option) => (option.value === 'aperture'
            ? { ...option, unless: (/** @type {State} */ s) => (['X3', 'Z3'].includes(model(s)) ? 'no aperture' : '') }
            : option)),
        shown: key('image_mode'), command: paramOf('video_mode') },
    { id: 'iso', group: 'exposure', label: 'ISO', kind: 'choice', options: options(isoValues),
        shown: key('iso_set'), command: paramOf('iso') },
    { id: 'shutter', group: 'exposure', label: 'Shutter', kind: 'choice', options: options(shutterValues),
        unless: inProgram('shutter', 'manual'), shown: key('shutter'), command: paramOf('shutter') },
    { id: 'aperture', group: 'exposure', label: 'Aperture', kind: 'choice', options: options(apertureValues),
        models: interchangeable, unless: inProgram('aperture', 'manual'), shown: key('aperture'),
        command: paramOf('aperture') },
    { id: 'ev', group: 'exposure', label: 'Compensation', kind: 'choice', options: options(evValues), unit: 'EV',
        shown: (s) => text(s, 'ev').replace('+', ''), command: paramOf('ev') },
    { id: 'exposure_lock', group: 'exposure', label: 'Exposure lock', kind: 'switch',
        options: [{ value: 'lock', label: 'Locked' }, { value: 'unlock', label: 'Off' }],
        shown: (s) => ({ 1: 'lock', 0: 'unlock' })[text(s, 'ae')] ?? '', command: valueOf('exposure', 'auto') },
    { id: 'exposure_point', group: 'exposure', label: 'Metering point', kind: 'fields', button: 'Meter there',
        fields: [{ label: 'Number', least: 0, most: 255, step: 1, start: '0' }],
        hint: 'Not reported by the camera. Unlocks the exposure.', command: valueOf('exposure', 'point') },
    { id: 'exposure_center', group: 'exposure', label: 'Metering', kind: 'actions',
        options: [{ value: '', label: 'Center' }],
        hint: 'Not reported by the camera. Unlocks the exposure.',
        command: () => ({ cmd: 'exposure', param: 'center' }) },
    { id: 'histogram', group: 'exposure', label: 'Histogram', kind: 'actions', options: onOff(),
        hint: 'Not reported by the camera.', command: paramOf('histogram') },
    // Picture
    { id: 'video_resolution', group: 'picture', label: 'Video', kind: 'choice', options: options(resolutionValues),
        unless: (s) => inVideo(s) || notRecording(s), shown: (s) => text(s, 'format').toLowerCase(),
        command: paramOf('video_resolution') },
    { id: 'video_aspect', group: 'picture', label: 'Aspect', kind: 'choice', options: options(['16:9', '4:3']),
        shown: key('ratio'), command: paramOf('video_aspect') },
    { id: 'shotmode', group: 'picture', label: 'Photo format', kind: 'choice',
        options: [{ value: 'jpg', label: 'JPG' }, { value: 'raw', label: 'RAW' }, { value: 'jpg+raw', label: 'JPG+RAW' }],
        unless: inPhoto, shown: (s) => text(s, 'shot_mode').toLowerCase(), command: paramOf('shotmode') },
    { id: 'wb', group: 'picture', label: 'White balance', kind: 'choice', options: options(wbValues),
        shown: key('wb'), command: paramOf('wb') },
    { id: 'wb_custom', group: 'picture', label: 'Own white balance', kind: 'fields', button: 'Set',
        fields: [{ label: 'Kelvin', least: 2000, most: 10000, step: 100, start: '5600' }],
        shown: (s) => (text(s, 'wb') === 'custom' ? `${text(s, 'wb_temp')} K` : ''),
        agrees: (s, [kelvin]) => text(s, 'wb') === 'custom' && text(s, 'wb_temp') === kelvin,
        command: valueOf('wb', 'custom') },
    { id: 'color', group: 'picture', label: 'Color', kind: 'choice',
        options: options(colorValues).map((option) => ({ ...option, silent: option.value === 'art' })),
        shown: key('color_mode'), command: paramOf('color') },
    { id: 'antiflicker', group: 'picture', label: 'Anti-flicker', kind: 'choice',
        options: [{ value: 'auto', label: 'auto' }, { value: '50', label: '50 Hz' }, { value: '60', label: '60 Hz' }],
        shown: (s) => text(s, 'antiflicker').replace(' Hz', ''), command: paramOf('antiflicker') },
    { id: 'video_std', group: 'picture', label: 'Standard', kind: 'choice', options: options(['PAL', 'NTSC']),
        shown: key('video_std'), command: paramOf('video_std') },
    // Focus and zoom
    { id: 'focus_type', group: 'focus', label: 'Focus', kind: 'choice', models: focusing,
        options: [
            { value: 'af', label: 'automatic' },
            { value: 'mf', label: 'manual', unless: (s) => (model(s) === 'Z3' ? 'not with this lens' : '') },
            { value: 'inf', label: 'infinity' },
        ],
        // The camera tells infinity as what it is, a focus that it does not search: all that this lens has of one.
        shown: (s) => (model(s) === 'Z3' && focusType(s) === 'mf' ? 'inf' : focusType(s)), agrees: (s, [type]) => focusType(s) === (type === 'af' ? 'af' : 'mf'),
        command: valueOf('focus', 'type') },
    { id: 'focus_manual', group: 'focus', label: 'Manual focus', kind: 'range', models: interchangeable, unit: '%',
        fields: [{ label: 'Percent', least: 0, most: 100, step: 1, start: '50' }], unless: focusedByHand,
        shown: focusPercent, agrees: (s, [percent]) => isFocusedTo(s, Number(percent)),
        command: valueOf('focus', 'manual') },
    { id: 'focus_point', group: 'focus', label: 'Focus point', kind: 'fields', button: 'Focus there', models: focusing,
        fields: [{ label: 'Across', least: 0, most: 1, step: 0.01, start: '0.5' },
            { label: 'Down', least: 0, most: 1, step: 0.01, start: '0.5' }],
        shown: (s) => (focusType(s) === '' ? '' : ['focus_point_x', 'focus_point_y']
            .map((name) => (number(s, name) / 1000).toFixed(2)).join(', ')),
        agrees: (s, values) => ['focus_point_x', 'focus_point_y']
            .every((name, i) => Math.abs(number(s, name) - Number(values[i]) * 1000) <= 2),
        command: (value, value2) => ({ cmd: 'focus', param: 'point', value, value2 }) },
    { id: 'focus_mfa', group: 'focus', label: 'Manual-focus assistant', kind: 'switch', options: onOff(), models: interchangeable,
        shown: assistant(0), command: valueOf('focus', 'mfa') },
    { id: 'focus_afa', group: 'focus', label: 'Autofocus assistant', kind: 'switch', options: onOff(), models: focusing,
        shown: assistant(1), command: valueOf('focus', 'afa') },
    { id: 'focus_realtime', group: 'focus', label: 'Real-time autofocus', kind: 'actions', options: onOff(),
        models: focusing, hint: 'Not reported by the camera.', command: valueOf('focus', 'realtime') },
    { id: 'focus_limits', group: 'focus', label: 'Manual-focus limits', kind: 'fields', button: 'Save', models: interchangeable,
        fields: [{ label: 'From %', least: 0, most: 100, step: 1, start: '0' },
            { label: 'To %', least: 0, most: 100, step: 1, start: '0' }],
        wrong: ([least, most]) => (Number(least) > Number(most) ? 'from the lower to the higher' : ''),
        shown: focusLimits,
        agrees: (s, [least, most]) => text(s, 'mf_min') === least && text(s, 'mf_max') === most,
        command: (value, value2) => ({ cmd: 'updatecameraconfig', param: 'focus_limits', value, value2 }) },
    { id: 'zoom_optical', group: 'focus', label: 'Optical zoom', kind: 'hold', models: ['Z3'],
        options: [{ value: '-1', label: 'Out' }, { value: '1', label: 'In' }], hint: 'Hold. Not reported by the camera.',
        command: valueOf('zoom', 'optical') },
    { id: 'zoom_digital', group: 'focus', label: 'Digital zoom', kind: 'hold', moves: true,
        options: [{ value: '-1', label: 'Out' }, { value: '1', label: 'In' }], hint: 'Hold. Not reported by the camera.',
        command: valueOf('zoom', 'digital') },
    { id: 'dzoom', group: 'focus', label: 'Digital zoom to', kind: 'fields', button: 'Set',
        fields: [{ label: 'Percent', least: 100, most: 200, step: 1, start: '100' }],
        hint: 'Not reported by the camera.', command: valueOf('dzoom', 'set') },
    { id: 'smoothtrack', group: 'focus', label: 'Slower when zoomed', kind: 'actions', options: onOff(),
        hint: 'The gimbal turns slower as the lens goes in. Not reported by the camera.',
        command: (value) => ({ cmd: 'zoomadjustedsmoothtrack', value }) },
    // Gimbal
    { id: 'movement', group: 'gimbal', label: 'Stick gives', kind: 'choice',
        options: [{ value: 'rel', label: 'Speed' }, { value: 'abs', label: 'Position' }],
        shown: key('movement'), hint: 'The last that was sent through the monitor.', command: (value) => ({ cmd: 'set', name: 'movement', value }) },
    { id: 'position', group: 'gimbal', label: 'Go to', kind: 'actions',
        options: [{ value: 'normal', label: 'Normal' }, { value: 'selfie', label: 'Selfie' }], command: paramOf('position') },
    { id: 'position_abs', group: 'gimbal', label: 'Go to angle', kind: 'fields', button: 'Go',
        fields: ['Pan', 'Tilt', 'Roll'].map((label) => ({ label, least: -2, most: 2, step: 1, start: '0' })),
        hint: 'In whole numbers of full scale.',
        command: (value, value2, value3) => ({ cmd: 'position', param: 'abs', value, value2, value3 }) },
    { id: 'orientation', group: 'gimbal', label: 'Orientation lock', kind: 'switch',
        options: [{ value: 'lock', label: 'Locked' }, { value: 'unlock', label: 'Off' }],
        shown: (s) => ({ 0: 'lock', 1: 'unlock' })[text(s, 'gimbal_unlocked')] ?? '', command: paramOf('orientation') },
    { id: 'pitch', group: 'gimbal', label: 'Pitch lock', kind: 'actions', options: onOff('lock', 'unlock'),
        hint: 'Not reported by the camera.', command: paramOf('pitch') },
    { id: 'horizont', group: 'gimbal', label: 'Horizon', kind: 'actions',
        options: [{ value: 'ccw', label: '⟲ Left' }, { value: 'cw', label: 'Right ⟳' }, { value: 'zero', label: 'Level' },
            { value: 'calibrate', label: 'Calibrate…', confirm: 'Calibrate the gimbal? It moves by itself; put it down first.' }],
        hint: 'Not reported by the camera.', command: paramOf('horizont') },
    // Camera
    { id: 'power', group: 'camera', label: 'Power', kind: 'actions', whileSilent: true,
        options: [
            { value: 'wakeup', label: 'Wake up' },
            { value: 'sleep', label: 'Sleep…', confirm: 'Send the camera to sleep? It sends no video then, and the receiver ends after some seconds.' },
            { value: 'restart', label: 'Restart…', confirm: 'Restart the camera?' },
            { value: 'shutdown', label: 'Shut down…', confirm: 'Shut the camera down? Only its own button brings it back.' },
        ], command: paramOf('power') },
    { id: 'wifi', group: 'camera', label: 'Wi-Fi', kind: 'actions', options: [{ value: 'mode', label: 'Use 2.4 GHz' }],
        hint: 'Not reported by the camera.', command: paramOf('wifi') },
    { id: 'format_sd', group: 'camera', label: 'Memory card', kind: 'actions', unless: notRecording,
        options: [{ value: 'sd', label: 'Format…', confirm: 'Format the memory card? Everything on it is lost.' }],
        command: paramOf('format') },
    { id: 'format_ssd', group: 'camera', label: 'Drive', kind: 'actions', models: ['X5R'], unless: notRecording,
        options: [{ value: 'ssd', label: 'Format…', confirm: 'Format the drive? Everything on it is lost.' }],
        command: paramOf('format') },
    { id: 'reset', group: 'camera', label: 'Settings', kind: 'actions', unless: notRecording,
        options: [{ value: '', label: 'Reset…', confirm: 'Put all settings of the camera back to what they were when it was new?' }],
        command: () => ({ cmd: 'resetcamera' }) },
];

/** What a hold sends when it is let go. */
export const letGo = '0';

/** @param {string} id @returns {Control} */
export function control(id) {
    const found = controls.find((each) => each.id === id);
    if (!found) {
        throw new Error(`there is no control ${id}`);
    }
    return found;
}

/** @param {Control} control @param {State} state Whether this camera has it; an unknown one has all. */
export function belongs(control, state) {
    const name = model(state);
    return !control.models || name === '' || control.models.includes(name);
}

/** @param {Control} control @param {State} state Why it cannot be used now; empty where it can. */
export function reasonAgainst(control, state) {
    if (text(state, 'monitor') !== 'present') {
        return 'no monitor';
    }
    if (text(state, 'receiver') !== 'present') {
        return 'no receiver';
    }
    if (text(state, 'camera') !== 'present' && !control.whileSilent) {
        return 'no camera';
    }
    return control.unless?.(state) ?? '';
}

/** @param {Control} control @param {string} value @param {State} state Why it cannot be set to that; empty where it can. */
export function reasonAgainstValue(control, value, state) {
    const option = control.options?.find((each) => each.value === value);
    return belongs(control, state) ? reasonAgainst(control, state) || (option?.unless?.(state) ?? '') : 'not with this camera';
}

/** @param {Control} control @param {State} state What the camera says of it; empty before it has said anything. */
export function shownBy(control, state) {
    return isDetected(state) ? control.shown?.(state) ?? '' : '';
}

/** @param {Control} control @param {State} state @param {string[]} values */
export function isShown(control, state, values) {
    return control.agrees ? control.agrees(state, values) : shownBy(control, state) === values[0];
}
