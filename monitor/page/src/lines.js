// The line log: it follows its end unless somebody has scrolled back.
import { byId, make } from './dom.js';
import { on } from './link.js';

const mostLines = 500;
const nearEnd = 24;

export function startLines() {
    const log = byId('lines');
    on('connected', () => log.replaceChildren());
    on('lines', (/** @type {string[]} */ lines) => {
        const follows = log.scrollHeight - log.scrollTop - log.clientHeight < nearEnd;
        log.append(...lines.map((line) => make('div', {}, line)));
        while (log.childElementCount > mostLines) {
            log.firstElementChild?.remove();
        }
        if (follows) {
            log.scrollTop = log.scrollHeight;
        }
    });
}
