// The gimbal's stick: pointer, touch and keys. While it is held the monitor is told again and again,
// for it lets the gimbal rest when a page falls silent.
import { control, reasonAgainst } from './control_table.js';
import { byId, setAttribute, setText } from './dom.js';
import { on, send } from './link.js';
import { prepareMovement } from './movement.js';
import { state, watch } from './state.js';

const repeatMs = 100;
/** @type {Record<string, [number, number, number]>} pan, tilt, dutch */
const directions = {
    ArrowLeft: [-1, 0, 0], ArrowRight: [1, 0, 0], ArrowUp: [0, 1, 0], ArrowDown: [0, -1, 0],
    KeyA: [-1, 0, 0], KeyD: [1, 0, 0], KeyW: [0, 1, 0], KeyS: [0, -1, 0], KeyQ: [0, 0, -1], KeyE: [0, 0, 1],
};

const held = new Set();
/** Why the monitor refuses it: a receiver on another machine has no sticks. */
let refusal = '';
/** @type {number | null} */
let captured = null;
let pointer = { pan: 0, tilt: 0 };
let isMoved = false;

function against() {
    return reasonAgainst(control('movement'), state()) || refusal;
}

function reach() {
    return Number(/** @type {HTMLInputElement} */ (byId('stick-reach')).value) / 100;
}

function position() {
    const sum = [pointer.pan, pointer.tilt, 0];
    for (const code of held) {
        directions[code].forEach((way, axis) => { sum[axis] += way * reach(); });
    }
    const [pan, tilt, dutch] = sum.map((value) => Math.min(Math.max(value, -1), 1));
    return { pan, tilt, dutch };
}

function draw() {
    const { pan, tilt } = position();
    byId('stick-knob').style.transform = `translate(-50%, -50%) translate(${pan * 100}%, ${-tilt * 100}%)`;
}

function tellMonitor() {
    const sticks = position();
    const isRest = sticks.pan === 0 && sticks.tilt === 0 && sticks.dutch === 0;
    if (isRest && !isMoved) {
        return;
    }
    prepareMovement();
    send({ sticks });
    isMoved = !isRest;
}

function changed() {
    draw();
    tellMonitor();
}

/** @param {string} code Whether it is one of the stick's. */
export function isStickKey(code) {
    return code in directions;
}

/** @param {string} code @param {boolean} down */
export function holdKey(code, down) {
    if (down && against() !== '') {
        return;
    }
    if (down !== held.has(code)) {
        if (down) {
            held.add(code);
        } else {
            held.delete(code);
        }
        changed();
    }
}

export function letGoOfAll() {
    if (captured !== null) {
        const pointerId = captured;
        captured = null;
        if (byId('stick').hasPointerCapture(pointerId)) {
            byId('stick').releasePointerCapture(pointerId);
        }
    }
    if (held.size > 0 || pointer.pan !== 0 || pointer.tilt !== 0) {
        held.clear();
        pointer = { pan: 0, tilt: 0 };
        changed();
    }
}

export function startStickPad() {
    const pad = byId('stick');
    /** @param {PointerEvent} event */
    const follow = (event) => {
        const box = pad.getBoundingClientRect();
        const limited = (/** @type {number} */ value) => Math.min(Math.max(value, -1), 1) * reach();
        pointer = {
            pan: limited(((event.clientX - box.left) / box.width) * 2 - 1),
            tilt: limited(1 - ((event.clientY - box.top) / box.height) * 2),
        };
        changed();
    };
    pad.addEventListener('pointerdown', (event) => {
        if (event.button === 0 && against() === '') {
            captured = event.pointerId;
            pad.setPointerCapture(event.pointerId);
            follow(event);
        }
    });
    pad.addEventListener('pointermove', (event) => {
        if (event.pointerId === captured) {
            follow(event);
        }
    });
    for (const end of ['pointerup', 'pointercancel', 'lostpointercapture']) {
        pad.addEventListener(end, letGoOfAll);
    }
    window.addEventListener('blur', letGoOfAll);
    document.addEventListener('visibilitychange', letGoOfAll);
    setInterval(tellMonitor, repeatMs);

    const update = () => {
        const why = against();
        setAttribute(pad, 'aria-disabled', String(why !== ''));
        setText(byId('stick-note'), why);
        if (why !== '') {
            letGoOfAll();
        }
    };
    on('connected', () => { refusal = ''; });
    on('refused', ({ why, message }) => {
        if ('sticks' in message) {
            refusal = why;
            update();
        }
    });
    watch(() => {
        if (reasonAgainst(control('movement'), state()) !== '') {
            refusal = ''; // another receiver may have them
        }
        update();
    });
}
