// What the reports' values mean.

/** @param {State} state @param {string} key */
export function text(state, key) {
    return String(state[key] ?? '');
}

/** @param {State} state @param {string} key NaN where it is not known. */
export function number(state, key) {
    return state[key] === undefined || state[key] === '' ? NaN : Number(state[key]);
}

/** @param {State} state "X5" of "DJI Osmo Pro (X5)"; empty where it is not known. */
export function model(state) {
    return /\((\w+)\)/.exec(text(state, 'camera_model'))?.[1] ?? '';
}

/** @param {State} state Whether a camera has told anything yet: before that all its values are zeros. */
export function isDetected(state) {
    return text(state, 'camera_detected') === '1';
}

/** @param {State} state @returns {'idle' | 'starting' | 'recording' | 'stopping'} */
export function recording(state) {
    const phases = /** @type {const} */ (['idle', 'starting', 'recording', 'stopping']);
    return phases[((number(state, 'record_state') || 0) >> 6) & 3];
}

/** @param {State} state @param {string} key @param {number} bit */
export function hasBit(state, key, bit) {
    return ((number(state, key) || 0) & (1 << bit)) !== 0;
}

/** @param {State} state 'af', 'mf', or empty while the camera has not told. */
export function focusType(state) {
    if (text(state, 'focus_valid') !== '1') {
        return '';
    }
    return text(state, 'focus_auto') === '1' ? 'af' : 'mf';
}

/** @param {State} state Whether a manual focus moves in a part of the range: both ends at 0 are none. */
function isLimited(state) {
    return (number(state, 'mf_min') || 0) !== 0 || (number(state, 'mf_max') || 0) !== 0;
}

/** @param {State} state That part; '' if unknown. */
export function focusLimits(state) {
    if (text(state, 'mf_min') === '') {
        return '';
    }
    return isLimited(state) ? `${text(state, 'mf_min')} to ${text(state, 'mf_max')} %` : 'none';
}

/** @param {State} state Percent of the part of the range that a manual focus moves in; '' if unknown. */
export function focusPercent(state) {
    const range = number(state, 'focus_range');
    if (!(range > 0) || focusType(state) === '') {
        return '';
    }
    const whole = (number(state, 'focus_position') / range) * 100;
    const least = number(state, 'mf_min') || 0;
    const most = number(state, 'mf_max') || 0;
    const percent = isLimited(state) && most !== least ? ((whole - least) / (most - least)) * 100 : whole;
    return String(Math.round(percent));
}

/** @param {State} state @param {number} percent Whether a manual focus of that percent leads to where the lens is.
 *  The receiver cuts percents of the whole range to whole ones, so it has but a few places in a narrow part. */
export function isFocusedTo(state, percent) {
    const range = number(state, 'focus_range');
    if (!(range > 0) || focusType(state) === '') {
        return false;
    }
    const least = number(state, 'mf_min') || 0;
    const most = number(state, 'mf_max') || 0;
    const whole = isLimited(state) ? Math.trunc(least + (most - least) * percent * 0.01) : percent;
    const nearer = Math.max(range / 200, 1); // than to the next; a position is a whole number, too
    return Math.abs(number(state, 'focus_position') - (range / 100) * whole) <= nearer;
}
