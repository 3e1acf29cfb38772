// A click on the picture: where to focus, or where to meter.
import { ask } from './asking.js';
import { focusType, number } from './camera_state.js';
import { belongs, control, reasonAgainstValue } from './control_table.js';
import { byId } from './dom.js';
import { tell } from './notices.js';
import { state, watch } from './state.js';

// The camera takes a number from 0 to 255: the picture in 16 by 16 fields, row by row.
const metering = 16;

/** @param {number} across @param {number} down both from 0 to 1 */
export function meteringNumber(across, down) {
    const field = (/** @type {number} */ part) => Math.min(Math.floor(part * metering), metering - 1);
    return String(field(down) * metering + field(across));
}

/** @param {string} id */
function usable(id) {
    const against = reasonAgainstValue(control(id), '', state());
    if (against !== '') {
        tell(`${control(id).label}: ${against}`);
    }
    return against === '';
}

export function startPicturePoints() {
    const stage = byId('stage');
    const meters = /** @type {HTMLInputElement} */ (byId('click-meters'));
    const meterMark = byId('meter-mark');
    stage.addEventListener('click', (event) => {
        const picture = byId('picture').getBoundingClientRect();
        const across = (event.clientX - picture.left) / picture.width;
        const down = (event.clientY - picture.top) / picture.height;
        if (!(across >= 0 && across < 1 && down >= 0 && down < 1)) {
            return;
        }
        if (event.shiftKey || meters.checked) {
            if (usable('exposure_point')) {
                ask(control('exposure_point'), meteringNumber(across, down));
                const field = (/** @type {number} */ part) => `${(Math.floor(part * metering) + 0.5) * (100 / metering)}%`;
                meterMark.style.left = field(across);
                meterMark.style.top = field(down);
                meterMark.hidden = false;
            }
        } else if (usable('focus_point')) {
            ask(control('focus_point'), across.toFixed(3), down.toFixed(3));
        }
    });
    const mark = byId('focus-mark');
    watch((known) => {
        mark.hidden = focusType(known) === '' || !belongs(control('focus_point'), known);
        mark.style.left = `${number(known, 'focus_point_x') / 10}%`;
        mark.style.top = `${number(known, 'focus_point_y') / 10}%`;
    });
}
