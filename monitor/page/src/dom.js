// Elements without a framework.

/** @param {string} id @returns {HTMLElement} */
export function byId(id) {
    const found = document.getElementById(id);
    if (!found) {
        throw new Error(`there is no element ${id}`);
    }
    return found;
}

/**
 * @template {keyof HTMLElementTagNameMap} Tag
 * @param {Tag} tag
 * @param {Record<string, string | boolean | undefined>} [attributes]
 * @param {...(Node | string)} children
 * @returns {HTMLElementTagNameMap[Tag]}
 */
export function make(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (value === true) {
            element.setAttribute(name, '');
        } else if (typeof value === 'string') {
            element.setAttribute(name, value);
        }
    }
    element.append(...children);
    return element;
}

/** Writes only what differs: a screen reader reads what is written.
 * @param {Element} element @param {string} text */
export function setText(element, text) {
    if (element.textContent !== text) {
        element.textContent = text;
    }
}

/** @param {Element} element @param {string} name @param {string | boolean} value false takes it away */
export function setAttribute(element, name, value) {
    if (value === false) {
        element.removeAttribute(name);
    } else if (element.getAttribute(name) !== String(value === true ? '' : value)) {
        element.setAttribute(name, value === true ? '' : value);
    }
}
