// The values that the page knows. Whoever watches is called soon after a change, once for all that changed
// until then.

/** @type {State} */
const values = { monitor: 'waiting' };
/** @type {((state: State) => void)[]} */
const watchers = [];
let scheduled = false;

/** @returns {State} */
export function state() {
    return values;
}

/** @param {(state: State) => void} watcher */
export function watch(watcher) {
    watchers.push(watcher);
    watcher(values);
}

/** @param {State} changes */
export function change(changes) {
    Object.assign(values, changes);
    if (!scheduled) {
        scheduled = true;
        // Not a frame of the display: a page in the background has none, and its title tells, too.
        setTimeout(tell, 15);
    }
}

/** What was known of before is not known any more. */
export function forget() {
    for (const key of Object.keys(values)) {
        if (key !== 'monitor') {
            delete values[key];
        }
    }
    change({});
}

function tell() {
    scheduled = false;
    for (const watcher of watchers) {
        watcher(values);
    }
}
