// The words that a camera's settings can have, in the order in which a hand looks for them.

export const isoValues = ['auto', '100', '200', '400', '800', '1600', '3200', '6400'];
export const evValues = ['-3.0', '-2.7', '-2.3', '-2.0', '-1.7', '-1.3', '-1.0', '-0.7', '-0.3', '0',
    '0.3', '0.7', '1.0', '1.3', '1.7', '2.0', '2.3', '2.7', '3.0'];
export const shutterValues = ['30"', '25"', '20"', '15"', '10"', '9"', '8"', '7"', '6"', '5"', '4"',
    '3.2"', '3"', '2.5"', '2"', '1.6"', '1.3"', '1"', '1/1.25', '1/1.67', '1/2', '1/2.5', '1/3',
    '1/4', '1/5', '1/6.25', '1/8', '1/10', '1/12.5', '1/15', '1/20', '1/25', '1/30', '1/40', '1/50',
    '1/60', '1/80', '1/100', '1/120', '1/160', '1/200', '1/240', '1/320', '1/400', '1/500', '1/640',
    '1/800', '1/1000', '1/1250', '1/1600', '1/2000', '1/2500', '1/3200', '1/4000', '1/5000',
    '1/6400', '1/8000'];
export const apertureValues = ['1.7', '1.8', '2', '2.2', '2.5', '2.8', '3.2', '3.5', '4', '4.5', '5',
    '5.6', '6.3', '7.1', '8', '9', '10', '11', '13', '14', '16'];
export const wbValues = ['auto', 'sunny', 'cloudy', 'incandescent', 'neon'];
export const colorValues = ['none', 'd-log', 'd-cinelike', 'd-clike', 'art', 'black white', 'vivid',
    'beach', 'dream', 'classic', 'nostalgia', 'portrait'];

/** @type {[string, number[]][]} */
const rates = [
    ['4096x2160', [24, 25]],
    ['3840x2160', [24, 25, 30]],
    ['2704x1520', [24, 25, 30]],
    ['1920x1080', [24, 25, 30, 48, 50, 60, 120]],
    ['1280x720', [24, 25, 30, 48, 50, 60]],
];
export const resolutionValues = rates.flatMap(([size, list]) => list.map((rate) => `${size}@${rate}`));

/** @param {string[]} values @returns {Option[]} */
export function options(values) {
    return values.map((value) => ({ value, label: value }));
}
