// The picture on the screen as a PNG, in its own size.
import { make } from './dom.js';
import { currentPlayer } from './picture.js';
import { tell } from './notices.js';

function fileName() {
    const now = new Date(); // in local time, as the monitor names its recordings
    const [day, time] = [[now.getFullYear(), now.getMonth() + 1, now.getDate()], [now.getHours(), now.getMinutes(), now.getSeconds()]]
        .map((parts) => parts.map((part) => String(part).padStart(2, '0')).join(''));
    const digits = `${day}-${time}`;
    return `snapshot-${digits}.png`;
}

/** @param {string} address @param {string} name */
export function download(address, name) {
    const link = make('a', { href: address, download: name });
    document.body.append(link);
    link.click();
    link.remove();
}

export function takeSnapshot() {
    const player = currentPlayer();
    const { width, height } = player?.size() ?? { width: 0, height: 0 };
    if (!player || width === 0) {
        tell('There is no picture yet.');
        return;
    }
    const canvas = make('canvas');
    canvas.width = width;
    canvas.height = height;
    canvas.getContext('2d')?.drawImage(player.element, 0, 0);
    canvas.toBlob((blob) => {
        if (blob) {
            const address = URL.createObjectURL(blob);
            const name = fileName();
            download(address, name);
            tell(`${name}: ${width} x ${height}`);
            setTimeout(() => URL.revokeObjectURL(address), 10000);
        }
    }, 'image/png');
}
