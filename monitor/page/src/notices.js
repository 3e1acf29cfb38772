// Short news that needs no answer. The region is read out by screen readers.
import { byId, make } from './dom.js';

const shownForMs = 5000;
const mostAtOnce = 3;

/** @param {string} text */
export function tell(text) {
    const region = byId('notices');
    if (region.lastElementChild?.textContent === text) {
        return; // a stick may be refused ten times a second
    }
    const notice = make('p', {}, text);
    region.append(notice);
    while (region.children.length > mostAtOnce) {
        region.firstElementChild?.remove();
    }
    setTimeout(() => notice.remove(), shownForMs);
}
