import { instruments, shownBy } from './instrument_table.js';
import { byId, make, setText } from './dom.js';
import { watch } from './state.js';

export function startInstruments() {
    const place = byId('instruments');
    /** @type {((state: State) => void)[]} */
    const updates = [];
    for (const [title, rows] of instruments) {
        const list = make('dl');
        for (const row of rows) {
            const value = make('dd', { 'data-key': row.keys[0] }, '–');
            list.append(make('div', {}, make('dt', {}, row.label), value));
            updates.push((state) => setText(value, shownBy(row, state) || '–'));
        }
        place.append(make('section', { class: 'instrument' }, make('h3', {}, title), list));
    }
    watch((state) => updates.forEach((update) => update(state)));
}
