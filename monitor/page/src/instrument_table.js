// Everything that the reports tell, in the words and units of whoever looks at it. A test sees that
// no key is left out.
import { focusLimits, focusType, isDetected, number, recording, text } from './camera_state.js';

/** @param {State} s @param {string} key @param {number} divisor @param {number} digits @param {string} unit */
function scaled(s, key, divisor, digits, unit) {
    const value = number(s, key);
    return Number.isNaN(value) ? '' : `${(value / divisor).toFixed(digits)} ${unit}`;
}

/** @param {string} key */
const tenths = (key) => (/** @type {State} */ s) => scaled(s, key, 10, 1, '°');
/** @param {string} key @param {string} unit */
const withUnit = (key, unit) => (/** @type {State} */ s) => (text(s, key) === '' ? '' : `${text(s, key)} ${unit}`);
/** @param {string} key @param {string} yes @param {string} no */
const either = (key, yes, no) => (/** @type {State} */ s) => ({ 1: yes, 0: no })[text(s, key)] ?? text(s, key);
/** @param {string} key @param {string[]} names by bit; empty: not named */
const bits = (key, names) => (/** @type {State} */ s) => {
    const value = number(s, key);
    const set = names.filter((name, bit) => name !== '' && (value >> bit) & 1);
    return Number.isNaN(value) ? '' : set.join(', ') || 'none';
};
/** @param {string} x @param {string} y */
const point = (x, y) => (/** @type {State} */ s) => (focusType(s) === '' ? ''
    : `${scaled(s, x, 10, 1, '%')} across, ${scaled(s, y, 10, 1, '%')} down`);

/** always: also before the camera has told anything.
 * @typedef {{ label: string, keys: string[], show?: (s: State) => string, always?: boolean }} Instrument */
/** @type {[string, Instrument[]][]} Without show the first key's value as it is. */
export const instruments = [
    ['Camera', [
        { label: 'Model', keys: ['camera_model'] },
        { label: 'Mode', keys: ['camera_mode'] },
        { label: 'Detected', keys: ['camera_detected'], always: true, show: either('camera_detected', 'yes', 'no') },
        { label: 'Doing', keys: ['record_state'], show: (s) => (text(s, 'record_state') === '' ? ''
            : recording(s) + (number(s, 'record_state') & 8 ? ', taking a photo' : '')) },
        { label: 'State', keys: ['status_flags'], show: bits('status_flags', ['', '', '', 'busy', 'loop']) },
        { label: 'Battery', keys: ['battery_level'], show: withUnit('battery_level', '%') },
        { label: 'Voltage', keys: ['voltage'], show: (s) => scaled(s, 'voltage', 1000, 2, 'V') },
        { label: 'Current', keys: ['current'], show: (s) => scaled(s, 'current', 1000, 2, 'A') },
    ]],
    ['Media', [
        { label: 'Recorded', keys: ['rec_time'] },
        { label: 'Time left', keys: ['rec_time_left'] },
        { label: 'Photos left', keys: ['shots_left'] },
        { label: 'Card free', keys: ['sd'], show: (s) => text(s, 'sd') || 'none or full' },
        { label: 'Drive free', keys: ['ssd'], show: (s) => text(s, 'ssd') || 'none' },
    ]],
    ['Exposure', [
        { label: 'Program', keys: ['image_mode'] },
        { label: 'Shutter', keys: ['shutter'] },
        { label: 'Shutter before', keys: ['shutter_set'] },
        { label: 'Aperture', keys: ['aperture'], show: (s) => (text(s, 'aperture') === '' ? '' : `f/${text(s, 'aperture')}`) },
        { label: 'ISO in use', keys: ['iso'] },
        { label: 'ISO set', keys: ['iso_set'] },
        { label: 'Compensation', keys: ['ev'], show: withUnit('ev', 'EV') },
        { label: 'Lock', keys: ['ae'], show: either('ae', 'locked', 'off') },
    ]],
    ['Picture', [
        { label: 'Format', keys: ['format'] },
        { label: 'Resolution', keys: ['resolution'] },
        { label: 'Pictures a second', keys: ['framerate'] },
        { label: 'Aspect', keys: ['ratio'] },
        { label: 'Photo format', keys: ['shot_mode'] },
        { label: 'Color', keys: ['color_mode'] },
        { label: 'White balance', keys: ['wb'] },
        { label: 'Temperature', keys: ['wb_temp'], show: withUnit('wb_temp', 'K') },
        { label: 'Standard', keys: ['video_std'] },
        { label: 'Anti-flicker', keys: ['antiflicker'] },
    ]],
    ['Focus', [
        { label: 'Focus', keys: ['focus_auto', 'focus_valid'],
            show: (s) => ({ af: 'automatic', mf: 'manual', '': '' })[focusType(s)] ?? '' },
        { label: 'Position', keys: ['focus_position', 'focus_range'],
            show: (s) => (focusType(s) === '' ? '' : `${text(s, 'focus_position')} of ${text(s, 'focus_range')}`) },
        { label: 'Point', keys: ['focus_point_x', 'focus_point_y'], show: point('focus_point_x', 'focus_point_y') },
        { label: 'Assistants', keys: ['focus_byte42'], show: bits('focus_byte42', ['manual focus', 'autofocus']) },
        { label: 'Limits', keys: ['mf_min', 'mf_max'], show: focusLimits },
    ]],
    ['Gimbal', [
        { label: 'Yaw', keys: ['yaw'], show: tenths('yaw') },
        { label: 'Pitch', keys: ['pitch'], show: tenths('pitch') },
        { label: 'Roll', keys: ['roll'], show: tenths('roll') },
        { label: 'Orientation', keys: ['gimbal_unlocked'], show: either('gimbal_unlocked', 'free', 'locked') },
        { label: 'Fault', keys: ['gimbal_error'], show: either('gimbal_error', 'yes', 'none') },
        { label: 'Yaw limits', keys: ['gimbal_limit2', 'gimbal_limit1'],
            show: (s) => (text(s, 'gimbal_limit1') === '' ? '' : `${text(s, 'gimbal_limit2')} to ${text(s, 'gimbal_limit1')}`) },
        { label: 'Pitch limits', keys: ['gimbal_limit4', 'gimbal_limit3'],
            show: (s) => (text(s, 'gimbal_limit3') === '' ? '' : `${text(s, 'gimbal_limit4')} to ${text(s, 'gimbal_limit3')}`) },
    ]],
    ['Bytes as received', [
        { label: 'Status 42', keys: ['status_byte42'] },
        { label: 'Focus 32', keys: ['focus_byte32'] },
        { label: 'Settings 69', keys: ['settings_byte69'] },
        { label: 'Settings 100', keys: ['settings_byte100'] },
        { label: 'Camera flag', keys: ['camera_flag'] },
        { label: 'Parameters', keys: ['parameters'] },
    ]],
    ['Live video', [
        { label: 'Size', keys: ['video_width', 'video_height'], always: true,
            show: (s) => (number(s, 'video_width') > 0 ? `${text(s, 'video_width')} x ${text(s, 'video_height')}` : '') },
        { label: 'Bit rate', keys: ['video_bits_per_second'], always: true, show: (s) => scaled(s, 'video_bits_per_second', 1e6, 1, 'Mbit/s') },
        { label: 'Pictures', keys: ['video_pictures'], always: true },
        { label: 'Lost parts', keys: ['video_missed_parts'], always: true },
        { label: 'Dropped pictures', keys: ['video_dropped_pictures'], always: true },
        { label: 'Viewers', keys: ['viewers'], always: true },
    ]],
];

/** @param {Instrument} row @param {State} state Empty where it is not known. */
export function shownBy(row, state) {
    if (!row.always && !isDetected(state)) {
        return '';
    }
    return row.show ? row.show(state) : text(state, row.keys[0]);
}
