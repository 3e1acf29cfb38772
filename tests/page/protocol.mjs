// docs/protocol.md's tables, as rows of texts.
import { readFileSync } from 'node:fs';
import { dirname, join } from 'node:path';

const page = readFileSync(process.env.PROTOCOL_PAGE ?? '', 'utf8');

/** The rows of the table behind that mark, each a list of its columns without their backquotes. */
export function tableOf(mark) {
    const lines = page.slice(page.indexOf(`<!-- ${mark} -->`)).split('\n').slice(1);
    const end = lines.findIndex((line) => !line.startsWith('|'));
    return lines.slice(2, end).map((line) => line.split(' | ').map((cell) => cell.replace(/^\| | \|$/g, '').trim()));
}

const bare = (cell) => cell.replace(/^`|`$/g, '');

const wordsText = page.slice(page.indexOf('What each word may be:'), page.indexOf('### Binary zoom')).replace(/\s+/g, ' ');

/** The words that the page lists for a command; not those of which it says what they do. */
export function wordsOf(cmd) {
    const [, list] = new RegExp(`\`${cmd}\`: ([^;]*?)(?:;|\\. |\\.? - |$)`).exec(wordsText) ?? [];
    return list.split(/, (?:or )?/).filter((word) => !/ in `value`| for /.test(word));
}

/** "1920x1080@30" for "1920x1080 at 24, 25 or 30". */
export function resolutions() {
    const [, text] = /`video_resolution`: ([^.]*)\./.exec(wordsText) ?? [];
    return [...text.matchAll(/(\d+x\d+(?: and \d+x\d+)?) at (\d+(?:(?:, | or )\d+(?!x|\d))*)/g)]
        .flatMap(([, sizes, rates]) => sizes.split(' and ').flatMap((size) => rates.split(/, | or /).map((rate) => `${size}@${rate}`)));
}

/** A list of the receiver's own, which has what the page only names in part. */
export function settingList(name) {
    const source = readFileSync(join(dirname(process.env.PROTOCOL_PAGE ?? ''), '../src/control/setting_lists.h'), 'utf8');
    const [, list] = new RegExp(`${name}\\[\\] = \\{([^}]*)\\}`).exec(source) ?? [];
    return [...list.matchAll(/"((?:[^"\\]|\\.)*)"/g)].map(([, word]) => word.replace(/\\(.)/g, '$1'));
}

/** @returns {{ command: object, packets: string[] }[]} */
export function commandRows() {
    return tableOf('commands').map(([command, packets]) => ({
        command: JSON.parse(bare(command)),
        packets: packetsOf(packets),
    }));
}

function packetsOf(text) {
    if (text.startsWith('none')) {
        return [];
    }
    const times = text.startsWith('three times: ') ? 3 : 1;
    const list = text.replace('three times: ', '').split('; ');
    return Array.from({ length: times }, () => list).flat();
}

export function reportKeys() {
    return tableOf('report: keys').map(([key]) => bare(key));
}

/** Names of the status record's fields, but for its type and what is reserved. */
export function statusFields() {
    const start = page.indexOf('### Status record');
    return [...page.slice(start, page.indexOf('###', start + 5)).matchAll(/^\| \d+ \| \d \| `(\S+)` \|/gm)]
        .map(([, name]) => name);
}

/** The page's two reports: of no camera yet, and of one. Keys and values. */
export function exampleReports() {
    return [...page.matchAll(/^camera_detected=.*$/gm)]
        .map(([line]) => Object.fromEntries(line.split(',').filter((pair) => pair.includes('='))
            .map((pair) => [pair.slice(0, pair.indexOf('=')), pair.slice(pair.indexOf('=') + 1)])));
}
