// Sticks and the continuous digital zoom do nothing before the receiver has a movement mode. The page gives
// it one ahead of the first use, but only where the monitor knows of none: what somebody chose stays.
import { text } from './camera_state.js';
import { control, reasonAgainst } from './control_table.js';
import { sendCommand } from './link.js';
import { state, watch } from './state.js';

let isPrepared = false; // the monitor may not have said so yet
let mode = 'rel'; // or what the last receiver had

export function prepareMovement() {
    if (!isPrepared && text(state(), 'movement') === '') {
        isPrepared = sendCommand(control('movement').command(mode));
    }
}

export function startMovement() {
    watch((known) => {
        mode = text(known, 'movement') || mode;
        isPrepared &&= text(known, 'movement') === '' && reasonAgainst(control('movement'), known) === '';
    });
}
