// The page's tables against docs/protocol.md: no command and no value is left out.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { instruments, lateness, samples, shownBy, table, waysTo } from './hand.mjs';
import { commandRows, exampleReports, reportKeys, resolutions, settingList, statusFields, wordsOf } from './protocol.mjs';

test('every documented command has one control', () => {
    for (const { command } of commandRows()) {
        assert.equal(waysTo(command).length, 1, JSON.stringify(command));
    }
});

test('no control sends a command that is not documented', () => {
    const shapes = new Set(commandRows().map(({ command }) => shape(command)));
    for (const control of table.controls.filter(({ kind }) => kind !== 'hold')) {
        for (const values of control.options?.map((option) => [option.value]) ?? [control.fields.map(({ start }) => start)]) {
            const command = control.command(...values);
            assert.ok(shapes.has(shape(command)), JSON.stringify(command));
        }
    }
    // Which words a command has is its own affair; which members, and which of them are fixed, is not.
    function shape({ cmd, name, param, ...values }) {
        const free = ['video_mode', 'shutter', 'aperture', 'iso', 'ev', 'wb', 'color', 'video_resolution', 'video_aspect',
            'shotmode', 'antiflicker', 'video_std', 'histogram'];
        return JSON.stringify([cmd, name, free.includes(cmd) ? param !== undefined : param, Object.keys(values)]);
    }
});

test('every word that a command may have is offered', () => {
    const words = {
        ...Object.fromEntries(['iso', 'color', 'video_mode', 'shotmode', 'video_std', 'video_aspect', 'wb'].map((id) => [id, wordsOf(id)])),
        // Anything else is automatic; and custom takes a number.
        antiflicker: [...wordsOf('antiflicker'), 'auto'],
        video_resolution: resolutions(),
        shutter: settingList('kShutterTimes'),
        aperture: settingList('kApertureSteps'),
        ev: settingList('kEvSteps').map((value) => value.replace('+', '')),
    };
    for (const [id, list] of Object.entries(words)) {
        assert.ok(list.length > 1, id);
        assert.deepEqual(table.control(id).options.map(({ value }) => value).sort(), [...list].sort(), id);
    }
});

test('every value of the reports is shown', () => {
    const shown = instruments.flatMap(([, rows]) => rows.flatMap(({ keys }) => keys));
    // The four limits have one name in the documentation.
    const wanted = [...reportKeys(), ...statusFields().filter((name) => !name.startsWith('attitude_consts')),
        'gimbal_limit1', 'gimbal_limit2', 'gimbal_limit3', 'gimbal_limit4', 'parameters'];
    assert.deepEqual(wanted.filter((key) => !shown.includes(key)), []);
    assert.ok(reportKeys().length > 25 && statusFields().length > 15);
});

test('the parameters are shown as they came', () => {
    const row = instruments.flatMap(([, rows]) => rows).find(({ keys }) => keys[0] === 'parameters');
    const parameters = '0c'.repeat(53);
    assert.equal(shownBy(row, { monitor: 'present', receiver: 'present', camera: 'present', camera_detected: '1', parameters }), parameters);
});

const present = { monitor: 'present', receiver: 'present', camera: 'present' };

test('a camera is offered what it has', () => {
    const offered = (camera_model, id) => table.belongs(table.control(id), { ...present, camera_model });
    const models = ['DJI Osmo (X3)', 'DJI Osmo Pro (X5)', 'DJI Osmo RAW (X5R)', 'DJI Osmo+ (Z3)'];
    assert.deepEqual(models.map((model) => offered(model, 'aperture')), [false, true, true, false]);
    assert.deepEqual(models.map((model) => offered(model, 'format_ssd')), [false, false, true, false]);
    assert.deepEqual(models.map((model) => offered(model, 'zoom_optical')), [false, false, false, true]);
    assert.deepEqual(models.map((model) => offered(model, 'focus_type')), [false, true, true, true]);
    const byHand = ['focus_manual', 'focus_mfa', 'focus_limits'];
    assert.deepEqual(byHand.map((id) => models.map((model) => offered(model, id))), byHand.map(() => [false, true, true, false]));
    const z3 = { ...present, camera_model: 'DJI Osmo+ (Z3)' };
    assert.equal(table.reasonAgainstValue(table.control('focus_type'), 'mf', z3), 'not with this lens');
    assert.equal(table.reasonAgainstValue(table.control('focus_type'), 'af', z3), '');
    const program = table.control('video_mode').options.find(({ value }) => value === 'aperture');
    assert.deepEqual(models.map((camera_model) => program.unless({ camera_model })), ['no aperture', '', '', 'no aperture']);
});

test('a mode is offered what it allows', () => {
    const against = (id, state) => table.reasonAgainst(table.control(id), { ...present, camera_model: 'X (X5R)', ...state });
    assert.equal(against('shot', { camera_mode: 'photo' }), '');
    assert.equal(against('shot', { camera_mode: 'video' }), 'only in photo mode');
    assert.equal(against('record', { camera_mode: 'photo' }), 'only in video mode');
    assert.equal(against('mode', { camera_mode: 'video', record_state: '128' }), 'not while it records');
    assert.equal(against('shutter', { image_mode: 'auto' }), 'only in program shutter or manual');
    assert.equal(against('shutter', { image_mode: 'manual' }), '');
    assert.equal(against('aperture', { image_mode: 'shutter' }), 'only in program aperture or manual');
    assert.equal(against('focus_manual', { focus_valid: '1', focus_auto: '1' }), 'only in manual focus');
    assert.equal(against('focus_manual', { focus_valid: '1', focus_auto: '0' }), '');
});

test('a camera that has told nothing yet has no values', () => {
    const [before, example] = exampleReports();
    assert.equal(before.camera_detected, '0');
    const zeros = { ...before, focus_byte42: '0', gimbal_unlocked: '0', ae: '0' };
    assert.deepEqual(table.controls.filter((control) => table.shownBy(control, zeros) !== '').map(({ id }) => id), []);
    const rows = instruments.flatMap(([, list]) => list);
    assert.deepEqual(rows.filter((row) => shownBy(row, zeros) !== '').map(({ label }) => label), ['Detected']);
    // And of one that has, each of the report's keys is shown as more than nothing.
    const told = rows.filter(({ keys }) => keys[0] in example);
    assert.ok(told.length > 25);
    assert.deepEqual(told.map((row) => [row.label, shownBy(row, example)]).filter(([, says]) => /^$|NaN|undefined/.test(says)), []);
});

test('both focus assistants are not known while the focus is not', () => {
    const shown = (id, state) => table.shownBy(table.control(id), { ...present, camera_detected: '1', ...state });
    for (const id of ['focus_mfa', 'focus_afa']) {
        assert.equal(shown(id, {}), '');
        assert.equal(shown(id, { focus_valid: '1', focus_byte42: '0' }), '0');
        assert.equal(shown(id, { focus_valid: '1', focus_byte42: '3' }), '1');
    }
});

test('a lens that has no manual focus is shown at infinity', () => {
    const shown = (camera_model, focus_auto) => table.shownBy(table.control('focus_type'),
        { ...present, camera_detected: '1', focus_valid: '1', camera_model, focus_auto });
    assert.deepEqual(['1', '0'].map((automatic) => shown('DJI Osmo+ (Z3)', automatic)), ['af', 'inf']);
    assert.deepEqual(['1', '0'].map((automatic) => shown('DJI Osmo Pro (X5)', automatic)), ['af', 'mf']);
});

test('the words beside a curve tell what happened in any of their samples', () => {
    const { growthOf, largest, mean, sayOf, sum } = samples;
    assert.equal(sayOf([null, 3, null, 0, 0], sum), 3);
    assert.equal(sayOf([40, null, 35], largest), 40);
    assert.equal(sayOf([40, null, 30], mean), 35);
    assert.equal(sayOf([40, 30]), 30);
    assert.equal(sayOf([40, null]), null); // not known any more
    assert.equal(sayOf([null, null], sum), null);
    assert.deepEqual([7, 7, NaN, 9, 2, 3].map(growthOf()), [null, 0, null, 2, null, 1]);
});

test('limits that are not set are none', () => {
    const limits = instruments.flatMap(([, rows]) => rows).find(({ keys }) => keys[0] === 'mf_min');
    const both = (state) => [table.shownBy(table.control('focus_limits'), state), shownBy(limits, state)];
    const detected = { ...present, camera_detected: '1' };
    assert.deepEqual(both(detected), ['', '']);
    assert.deepEqual(both({ ...detected, mf_min: '0', mf_max: '0' }), ['none', 'none']);
    assert.deepEqual(both({ ...detected, mf_min: '0', mf_max: '90' }), ['0 to 90 %', '0 to 90 %']);
});

test('each percent of a manual focus is confirmed, however narrow its limits are', () => {
    const { agrees } = table.control('focus_manual');
    const of = (range, mf_min, mf_max, focus_position) => ({ focus_valid: '1', focus_auto: '0', mf_min: String(mf_min),
        mf_max: String(mf_max), focus_range: String(range), focus_position: String(focus_position) });
    for (const [least, most] of [[0, 0], [10, 90], [20, 60], [40, 60], [30, 30], [0, 7]]) {
        for (const range of [1000, 4095, 60]) {
            for (let percent = 0; percent <= 100; percent += 1) {
                // As the receiver computes it: whole percents of the whole range, and single precision.
                const whole = least === 0 && most === 0 ? percent : Math.trunc(least + (most - least) * percent * 0.01);
                const single = Math.fround(Math.fround(range) * Math.fround(0.01));
                const position = Math.trunc(Math.fround(single * whole));
                const says = `${percent} % of ${least} to ${most}, range ${range}`;
                assert.ok(agrees(of(range, least, most, position), [String(percent)]), says);
                assert.ok(!agrees(of(range, least, most, position + Math.ceil(range / 100) + 2), [String(percent)]), `not ${says}`);
            }
        }
    }
    assert.ok(!agrees({ ...of(1000, 0, 0, 500), focus_valid: '0' }, ['50']));
    assert.ok(!agrees(of(0, 0, 0, 0), ['0']));
});

test('limits go from the lower to the higher', () => {
    const { wrong } = table.control('focus_limits');
    assert.equal(wrong(['10', '90']), '');
    assert.equal(wrong(['0', '0']), '');
    assert.equal(wrong(['100', '20']), 'from the lower to the higher'); // as numbers, not as texts
});

test('without a camera nothing is offered but to wake it', () => {
    const reasons = (state) => table.controls.filter((control) => table.reasonAgainst(control, { ...present, ...state }) === '')
        .map(({ id }) => id);
    assert.deepEqual(reasons({ camera: 'lost' }), ['power']);
    assert.deepEqual(reasons({ receiver: 'lost', camera: 'lost' }), []);
    assert.deepEqual(reasons({ monitor: 'lost' }), []);
});

test('a newcomer is not late, and whoever comes later than before is', () => {
    const behind = lateness();
    const came = (stampMs, arrived) => Math.round(behind({ stamp: 1000 * (5000000 + stampMs), arrived }));
    // What there was since the last key frame comes at once; then each as it is made.
    assert.deepEqual([0, 33, 66, 99].map((stamp) => came(stamp, 100)), [0, 0, 0, 0]);
    assert.deepEqual([came(133, 135), came(166, 180), came(200, 500)], [1, 13, 299]);
    assert.equal(came(600, 601), 0);
});

test('what was quickest is forgotten in time, for clocks drift', () => {
    const behind = lateness();
    const came = (stampMs, arrived) => behind({ stamp: 1000 * stampMs, arrived });
    came(0, 10);
    assert.equal(came(1000, 1060), 50);
    came(40000, 40060);
    came(80000, 80060);
    assert.equal(came(81000, 81060), 0);
});
