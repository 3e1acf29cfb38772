// Questions before what cannot be taken back.
import { byId, setText } from './dom.js';

/** @param {string} question @param {string} yes What the button says that does it. @returns {Promise<boolean>} */
export function sure(question, yes) {
    const dialog = /** @type {HTMLDialogElement} */ (byId('question'));
    setText(byId('question-text'), question);
    setText(byId('question-yes'), yes);
    dialog.returnValue = '';
    dialog.showModal();
    return new Promise((resolve) => {
        dialog.addEventListener('close', () => resolve(dialog.returnValue === 'yes'), { once: true });
    });
}
