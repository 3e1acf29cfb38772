// What the page's modules hand to each other.

declare module 'jmuxer' {
    export default class JMuxer {
        constructor(options: object);
        feed(data: { video: Uint8Array; duration?: number; isLastVideoFrameComplete?: boolean }): void;
        destroy(): void;
        bufferControllers: { video?: { sourceBuffer: SourceBuffer | null } } | null;
    }
}

/** The last value of each key, as the monitor tells it: texts; numbers, and what is so or not, of its own. */
interface State {
    [key: string]: string | number | boolean | undefined;
}

interface Command {
    cmd: string;
    name?: string;
    param?: string;
    value?: string;
    value2?: string;
    value3?: string;
}

interface Option {
    value: string;
    label: string;
    /** Asked for with this text before it is sent. */
    confirm?: string;
    /** The camera's answer does not tell it from others. */
    silent?: boolean;
    /** Why it cannot be asked for now; empty where it can. */
    unless?: (state: State) => string;
}

interface Field {
    label: string;
    least: number;
    most: number;
    step: number;
    start: string;
}

/** A row of the control table. */
interface Control {
    id: string;
    group: string;
    label: string;
    /** choice: a list. switch: the first option is "on". actions: a button each. fields: numbers and a
     *  button. range: a slider. hold: acts while pressed. */
    kind: 'choice' | 'switch' | 'actions' | 'fields' | 'range' | 'hold';
    options?: Option[];
    fields?: Field[];
    unit?: string;
    button?: string;
    /** Which cameras have it; all where it is left out. */
    models?: string[];
    /** Why it is not offered now; empty where it is. */
    unless?: (state: State) => string;
    /** What is wrong with these values together; empty where nothing is. */
    wrong?: (values: string[]) => string;
    /** It reaches a camera that sends nothing. */
    whileSilent?: boolean;
    /** The receiver acts on it only once it has a movement mode. */
    moves?: boolean;
    hint?: string;
    /** What the camera's telemetry says; left out where it tells nothing of it. */
    shown?: (state: State) => string;
    /** Whether the telemetry shows what was asked for; where it is left out, the two texts are equal. */
    agrees?: (state: State, values: string[]) => boolean;
    command: (...values: string[]) => Command;
}

/** A picture as it came. */
interface Picture {
    key: boolean;
    /** Microseconds of the monitor's clock, when the picture came out of the ring. */
    stamp: number;
    bytes: Uint8Array;
    arrived: number;
}

interface Presented {
    stamp: number;
    arrived: number;
    at: number;
}

interface VideoFormat {
    codec: string;
    width: number;
    height: number;
}

interface Player {
    element: HTMLCanvasElement | HTMLVideoElement;
    start(format: VideoFormat): void;
    take(picture: Picture): void;
    stop(): void;
    size(): { width: number; height: number };
    name: string;
}
