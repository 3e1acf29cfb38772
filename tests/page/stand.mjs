// What a test of the page stands on: the real receiver on a simulated board, its camera, the monitor
// and a browser. Each test file runs in names of its own (tests/own-names.sh), so the monitor's port
// can be the usual one.
import { spawn } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { chromium } from 'playwright-core';

const build = process.env.BUILD_DIRECTORY ?? '';
export const screenshots = process.env.SCREENSHOT_DIRECTORY ?? build;
export const longest = 20000;

/** @param {number} ms */
export const pause = (ms) => new Promise((resolve) => { setTimeout(resolve, ms); });

/** The first result that is not false, null or undefined. */
export async function eventually(look, what, ms = longest) {
    const end = Date.now() + ms;
    for (;;) {
        const found = await look();
        if (found !== false && found !== null && found !== undefined) {
            return found;
        }
        if (Date.now() > end) {
            throw new Error(`not within ${ms} ms: ${typeof what === 'function' ? await what() : what}`);
        }
        await pause(30);
    }
}

function start(program, args) {
    const child = spawn(join(build, program), args, { stdio: ['ignore', 'pipe', 'pipe'] });
    const process_ = { child, output: '', ended: new Promise((resolve) => { child.on('exit', resolve); }) };
    for (const stream of [child.stdout, child.stderr]) {
        stream.setEncoding('utf8').on('data', (text) => { process_.output += text; });
    }
    return process_;
}

async function end(process_, signal = 'SIGTERM') {
    if (process_ && process_.child.exitCode === null && process_.child.signalCode === null) {
        process_.child.kill('SIGCONT');
        process_.child.kill(signal);
        await process_.ended;
    }
}

/** @type {WeakMap<object, string[]>} */
const frames = new WeakMap();

/** What a page has sent to the monitor, as JSON texts, but for the stick's repeated ones. */
export const sentBy = (page) => (frames.get(page) ?? []).filter((text) => !text.startsWith('{"sticks"'));
/** The stick's own. */
export const sticksOf = (page) => (frames.get(page) ?? []).filter((text) => text.startsWith('{"sticks"'));

/** All notices that a page has shown. */
export const noticesOf = (page) => page.evaluate(() => globalThis.told);

export class Stand {
    constructor() {
        this.directory = mkdtempSync(join(tmpdir(), 'page-test.'));
        this.board = join(this.directory, 'board');
        this.packetFile = join(this.directory, 'packets');
        this.errors = [];
        this.foreign = [];
        this.rounds = 0;
    }

    /** Camera and receiver. The values are those of the simulator's scripts. */
    async startCamera(values = {}) {
        const script = join(this.directory, 'camera.script');
        const { writeFileSync, mkdirSync } = await import('node:fs');
        writeFileSync(script, Object.entries(values).map(([name, value]) => `0 set ${name} ${value}\n`).join(''));
        this.rounds += 1;
        const board = `${this.board}${this.rounds}`;
        mkdirSync(board, { recursive: true });
        this.boardDirectory ??= board;
        this.camera = start('simulator/camera-simulator', ['--root', this.boardDirectory, '--enumerate', 'short',
            '--h264', process.env.CLIP ?? join(build, 'clips/page.h264'), '--loop', '--record', this.packetFile, '--script', script,
            '--', join(build, 'camera-usb-receiver'), '--verbose']);
    }

    async endCamera() {
        await end(this.camera);
        this.camera = undefined;
    }

    async startMonitor(...more) {
        this.monitor = start('monitor/receiver-monitor', ['--listen', '127.0.0.1:8080',
            '--page', join(build, 'monitor/page'), '--recordings', this.directory,
            '--run-directory', join(this.board + '1', 'run/vantarel'), ...more]);
        await eventually(() => /http:\S+/.exec(this.monitor.output), () => `the monitor's address\n${this.monitor.output}`);
        this.address = /http:\S+/.exec(this.monitor.output)[0];
    }

    async endMonitor() {
        await end(this.monitor);
        this.monitor = undefined;
    }

    /** A browser's page at the monitor. What goes wrong in it is kept. */
    async openPage({ address = this.address, prepare = undefined, ...options } = {}) {
        this.browser ??= await chromium.launch({
            executablePath: '/usr/bin/chromium',
            args: ['--no-sandbox', '--autoplay-policy=no-user-gesture-required'],
        });
        const context = await this.browser.newContext({ viewport: { width: 1280, height: 800 }, reducedMotion: 'reduce',
            acceptDownloads: true, ...options });
        const page = await context.newPage();
        page.on('console', (message) => {
            if (['error', 'warning'].includes(message.type())) {
                this.errors.push(message.text());
            }
        });
        page.on('pageerror', (error) => this.errors.push(String(error)));
        frames.set(page, []);
        page.on('websocket', (socket) => socket.on('framesent', ({ payload }) => frames.get(page).push(String(payload))));
        page.on('request', (request) => {
            if (!/^(blob|data):/.test(request.url()) && new URL(request.url()).host !== new URL(address).host) {
                this.foreign.push(request.url());
            }
        });
        page.setDefaultTimeout(longest);
        await page.addInitScript(() => {
            globalThis.told = [];
            document.addEventListener('DOMContentLoaded', () => new MutationObserver((changes) => {
                globalThis.told.push(...changes.flatMap(({ addedNodes }) => [...addedNodes].map(({ textContent }) => textContent)));
            }).observe(document.getElementById('notices'), { childList: true }));
        });
        if (prepare) {
            await page.addInitScript(prepare);
        }
        await page.goto(address);
        return page;
    }

    /** The browser itself says that nobody was there; nobody else may say anything. */
    forgetRefusals() {
        this.errors = this.errors.filter((text) => !/ERR_CONNECTION_REFUSED|WebSocket connection to/.test(text));
    }

    /** The packets that the camera was sent, as hex digits. */
    packets() {
        if (!existsSync(this.packetFile)) {
            return []; // there was none yet
        }
        return readFileSync(this.packetFile, 'utf8').split('\n').filter((line) => line !== '');
    }

    async close() {
        await this.browser?.close();
        await this.endMonitor();
        await this.endCamera();
        rmSync(this.directory, { recursive: true, force: true });
    }
}

/** "01 02 2A 05" - receiver, set, id, payload - of a packet in hex digits. */
export function gist(packet) {
    const bytes = packet.match(/../g);
    return [bytes[5], bytes[9], bytes[10], ...bytes.slice(11, -2)].join(' ');
}

/** Until the page knows its camera. */
export async function connected(page) {
    await page.locator('#link-camera[data-state=present]').waitFor();
}
