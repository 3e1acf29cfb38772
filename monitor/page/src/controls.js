// The control table on the page: a row each, with what the camera says, what is asked of it, and why
// it is not offered.
import { pending, startAsking, watchAsked } from './asking.js';
import { belongs, controls, groups, reasonAgainst, shownBy } from './control_table.js';
import { widgets } from './control_widgets.js';
import { byId, make, setAttribute, setText } from './dom.js';
import { state, watch } from './state.js';

const labelled = ['choice', 'switch', 'range']; // those with one element, which the label names

/** @param {Control} control @param {string} value */
function wording(control, value) {
    const label = control.options?.find((option) => option.value === value)?.label ?? value;
    return control.unit && label !== '' ? `${label} ${control.unit}` : label;
}

/** @param {Control} control @returns {{ row: HTMLElement, update: () => void }} */
function makeRow(control) {
    const widget = widgets[control.kind](control);
    const name = `name-${control.id}`;
    const isOne = labelled.includes(control.kind);
    const label = isOne
        ? make('label', { id: name, for: `control-${control.id}` }, control.label)
        : make('span', { id: name, class: 'label' }, control.label);
    const value = make('output', { id: `value-${control.id}`, class: 'value' });
    const note = make('span', { id: `note-${control.id}`, class: 'note' });
    const input = make('div', { class: 'input' }, ...widget.elements);
    const row = make('div', { class: `control ${control.kind}`, 'data-control': control.id }, label, value, input, note);
    if (!isOne) {
        row.setAttribute('role', 'group');
        row.setAttribute('aria-labelledby', name);
    }
    input.querySelector('button, select, input')?.setAttribute('aria-describedby', note.id);

    function update() {
        const known = state();
        const shown = shownBy(control, known);
        const wanted = pending(control.id);
        const against = reasonAgainst(control, known);
        row.hidden = !belongs(control, known);
        setAttribute(row, 'aria-busy', wanted ? 'true' : false);
        row.classList.toggle('pending', wanted !== undefined);
        const says = control.shown ? wording(control, shown) || '–' : '';
        // A list or a switch shows it by itself, but while something else is asked for.
        setText(value, !['choice', 'switch'].includes(control.kind) || wanted ? says : '');
        value.title = wanted ? 'what the camera says' : '';
        const asks = wanted && `asked: ${wanted.map((each) => wording(control, each)).join(', ')}`;
        setText(note, asks || against || control.hint || '');
        note.classList.toggle('against', !asks && against !== '');
        widget.update({ shown, wanted, against });
    }
    return { row, update };
}

// Where the screen is narrow all but the most used begin folded.
const narrow = '(max-width: 1100px)';
const neverFolded = ['capture', 'exposure'];

/** @param {string} group @param {string} title */
function makeSection(group, title) {
    const heading = make('h2', { id: `group-${group}` }, title);
    if (group === 'capture') {
        return make('section', { 'aria-labelledby': heading.id, class: 'group', 'data-group': group }, heading);
    }
    const open = neverFolded.includes(group) || !window.matchMedia(narrow).matches;
    return make('details', { class: 'group', 'data-group': group, open }, make('summary', {}, heading));
}

export function startControls() {
    /** @type {Record<string, HTMLElement>} */
    const sections = {};
    for (const [group, title] of groups) {
        const place = document.querySelector(`[data-place="${group}"]`) ?? byId('controls');
        sections[group] = makeSection(group, title);
        place.append(sections[group]);
    }
    const rows = controls.map((control) => {
        const { row, update } = makeRow(control);
        sections[control.group].append(row);
        return update;
    });
    const updateAll = () => rows.forEach((update) => update());
    startAsking(controls);
    watchAsked(updateAll);
    watch(updateAll);
}
