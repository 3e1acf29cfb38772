// How late pictures come. The page does not know the monitor's clock; the shortest way that a picture
// had lately is the measure of the others. A clock that runs a little slower or faster does not matter
// over so short a time.
const windowMs = 30000;

/** @returns {(value: number, now: number) => number} the smallest of the last values, this one among them */
export function recentSmallest() {
    let smallest = Infinity;
    let smallestBefore = Infinity;
    let end = 0;
    return (value, now) => {
        if (now > end) {
            smallestBefore = smallest;
            smallest = value;
            end = now + windowMs;
        }
        smallest = Math.min(smallest, value);
        return Math.min(smallest, smallestBefore);
    };
}

/** @returns {(picture: { stamp: number, arrived: number }) => number} milliseconds behind the quickest */
export function lateness() {
    const quickest = recentSmallest();
    return ({ stamp, arrived }) => {
        const way = arrived - stamp / 1000;
        return way - quickest(way, arrived);
    };
}
