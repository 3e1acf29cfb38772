// What acts while it is held, by a pointer or a key. A control has one hand on it, the last that took it:
// only that one's leaving ends it, and none is shown as holding what goes on without it.
import { letGo } from './control_table.js';
import { sendCommand } from './link.js';
import { prepareMovement } from './movement.js';

/** @typedef {{ taken: () => void }} Hand */
/** @type {Map<string, Hand>} by the control's id */
const hands = new Map();

/** @param {Control} control @param {string} value @param {() => void} taken Another hand has it.
 *  @returns {(() => void) | null} Lets go of it; null where nothing was sent. */
export function hold(control, value, taken) {
    if (control.moves) {
        prepareMovement();
    }
    if (!sendCommand(control.command(value))) {
        return null;
    }
    hands.get(control.id)?.taken();
    const hand = { taken };
    hands.set(control.id, hand);
    return () => {
        if (hands.get(control.id) === hand) {
            hands.delete(control.id);
            sendCommand(control.command(letGo));
        }
    };
}
