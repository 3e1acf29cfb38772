// The kinds of controls: each makes its elements once and returns how they are brought up to date.
import { ask } from './asking.js';
import { make, setAttribute, setText } from './dom.js';
import { hold as holdControl } from './holding.js';
import { state } from './state.js';
import { tell } from './notices.js';

/**
 * What a widget is told: shown is the telemetry's text, wanted what was asked for and is pending,
 * against why it cannot be used.
 * @typedef {{ shown: string, wanted: string[] | undefined, against: string }} Look
 * @typedef {{ elements: HTMLElement[], update: (look: Look) => void }} Widget
 */

/** @param {Look} look @param {Option} option */
function optionDisabled(look, option) {
    return look.against !== '' || (option.unless?.(state()) ?? '') !== '';
}

/** @param {Control} control @returns {Widget} */
function choice(control) {
    const select = make('select', { id: `control-${control.id}` });
    const options = (control.options ?? []).map((option) => {
        const element = make('option', { value: option.value }, option.label);
        select.append(element);
        return { option, element };
    });
    // What the camera has and nobody can ask for.
    const other = make('option', { disabled: true, hidden: true }, '');
    select.prepend(other);
    select.addEventListener('change', () => ask(control, select.value));
    return {
        elements: [select],
        update(look) {
            const value = look.wanted?.[0] ?? look.shown;
            const known = options.some(({ option }) => option.value === value);
            other.value = known ? 'other' : value;
            setText(other, known ? '' : value || '–');
            for (const { option, element } of options) {
                element.disabled = optionDisabled(look, option);
            }
            if (select.value !== value || !known) {
                select.value = value;
            }
            select.disabled = look.against !== '';
        },
    };
}

/** @param {Control} control @returns {Widget} */
function toggle(control) {
    const [on, off] = control.options ?? [];
    const button = make('button', { type: 'button', role: 'switch', id: `control-${control.id}`, 'aria-checked': 'false' });
    let isOn = false;
    button.addEventListener('click', () => ask(control, isOn ? off.value : on.value));
    return {
        elements: [button],
        update(look) {
            isOn = look.shown === on.value;
            setAttribute(button, 'aria-checked', String(isOn));
            const labels = { [on.value]: on.label, [off.value]: off.label, '': '–' };
            setText(button, labels[look.shown] ?? `${look.shown}…`);
            button.disabled = look.against !== '';
        },
    };
}

/** @param {Control} control @returns {Widget} */
function actions(control) {
    const buttons = (control.options ?? []).map((option) => {
        const button = make('button', { type: 'button', 'data-value': option.value }, option.label);
        button.addEventListener('click', () => ask(control, option.value));
        return { option, button };
    });
    return {
        elements: buttons.map(({ button }) => button),
        update(look) {
            for (const { option, button } of buttons) {
                button.disabled = optionDisabled(look, option);
            }
        },
    };
}

/** @param {Control} control @param {Field} field */
function numberInput(control, field) {
    return make('input', {
        type: 'number',
        min: String(field.least),
        max: String(field.most),
        step: String(field.step),
        value: field.start,
        required: true,
        'aria-label': `${control.label}: ${field.label}`,
        title: `${field.label}, ${field.least} to ${field.most}`,
    });
}

/** @param {Control} control @returns {Widget} */
function fields(control) {
    const inputs = (control.fields ?? []).map((field) => numberInput(control, field));
    const button = make('button', { type: 'button' }, control.button ?? 'Set');
    const send = () => {
        const out = inputs.find((input) => !input.checkValidity());
        const values = inputs.map((input) => String(Number(input.value))); // not as "06100" or "1e2"
        const wrong = control.wrong?.(values) ?? '';
        if (out || wrong !== '') {
            tell(`${control.label}: ${out?.title ?? wrong}.`);
            (out ?? inputs[0]).focus();
        } else {
            ask(control, ...values);
        }
    };
    button.addEventListener('click', send);
    for (const input of inputs) {
        input.addEventListener('keydown', (event) => {
            if (event.key === 'Enter') {
                send();
            }
        });
    }
    const named = inputs.map((input, i) => make('label', { class: 'field' }, control.fields?.[i].label ?? '', input));
    return {
        elements: [...named, button],
        update({ against }) {
            [...inputs, button].forEach((element) => { element.disabled = against !== ''; });
        },
    };
}

/** @param {Control} control @returns {Widget} */
function range(control) {
    const [{ least, most, step, start }] = control.fields ?? [];
    const slider = make('input', { type: 'range', min: String(least), max: String(most), step: String(step),
        value: start, id: `control-${control.id}` });
    let held = false;
    slider.addEventListener('input', () => { held = true; });
    slider.addEventListener('change', () => {
        held = false;
        ask(control, slider.value);
    });
    return {
        elements: [slider],
        update({ shown, wanted, against }) {
            const value = wanted?.[0] ?? shown;
            if (!held && value !== '') {
                slider.value = value;
            }
            setAttribute(slider, 'aria-valuetext', shown === '' ? 'not known' : `${shown} ${control.unit ?? ''}`);
            slider.disabled = against !== '';
        },
    };
}

/** @param {Control} control @returns {Widget} */
function hold(control) {
    const buttons = (control.options ?? []).map((option) => {
        const button = make('button', { type: 'button', class: 'hold', 'data-value': option.value }, option.label);
        /** @type {(() => void) | null} */
        let letGoOfIt = null;
        const taken = () => {
            letGoOfIt = null;
            button.classList.remove('held');
        };
        const press = () => {
            letGoOfIt ??= holdControl(control, option.value, taken);
            button.classList.toggle('held', letGoOfIt !== null);
        };
        const release = () => {
            letGoOfIt?.();
            taken();
        };
        button.addEventListener('pointerdown', (event) => {
            if (event.button === 0) {
                button.setPointerCapture(event.pointerId);
                press();
            }
        });
        for (const end of ['pointerup', 'pointercancel', 'lostpointercapture', 'blur']) {
            button.addEventListener(end, release);
        }
        const presses = (/** @type {KeyboardEvent} */ { key }) => key === ' ' || key === 'Enter';
        button.addEventListener('keyup', (event) => presses(event) && release());
        button.addEventListener('keydown', (event) => {
            if (presses(event)) {
                event.preventDefault();
                if (!event.repeat) {
                    press();
                }
            }
        });
        button.addEventListener('contextmenu', (event) => event.preventDefault()); // a long touch
        document.addEventListener('visibilitychange', release);
        return { button, release };
    });
    return {
        elements: buttons.map(({ button }) => button),
        update({ against }) {
            for (const { button, release } of buttons) {
                if (against !== '') {
                    release(); // the browser tells a disabled button nothing of the hand that leaves it
                }
                button.disabled = against !== '';
            }
        },
    };
}

/** @type {Record<Control['kind'], (control: Control) => Widget>} */
export const widgets = { choice, switch: toggle, actions, fields, range, hold };
