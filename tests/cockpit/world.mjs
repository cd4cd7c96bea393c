// SPDX-License-Identifier: MIT
// world: what the cases know of the world without looking at the page: from tvsc, and from what Cockpit ran it with.
import { spawn, spawnSync } from 'node:child_process';
import { readFileSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

export const world = process.env.TV_WORLD;

// No program takes longer: a start may hold the daemon for three quarters of a minute, and whoever asks waits for it.
export const callMs = 90000;

// Runs a program to its end and returns its output, whatever its exit status. Throws when it does not end in time.
export function outputOf(program, ...words) {
    const { stdout, error } = spawnSync(program, words, {
        encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'], maxBuffer: 64 << 20, timeout: callMs, killSignal: 'SIGKILL',
    });
    if (error) throw error;
    return stdout;
}

export const tvscText = (...words) => outputOf('tvsc', ...words);
export const tvsc = (...words) => JSON.parse(tvscText(...words));

export const services = () => tvsc('list', '--json').services;
export const find = name => services().find(service => service.name === name);
export const state = name => find(name)?.state;
export const config = name => tvsc('show', '--json', `--name=${name}`).services[0].config;

export function stopDaemon() {
    tvscText('stop', '--all'); // or the next daemon would start second processes
    outputOf('servd', 'stop'); // what came of it is told by the daemon's absence
}

export function startDaemon() {
    spawn('servd', { stdio: 'ignore' });
    tvscText('wait-online', '--timeout', '30s');
}

// The command lines of tvsc that Cockpit has run so far.
export const calls = () => readFileSync(join(world, 'calls'), 'utf8').split('\n').filter(line => line);

async function withFile(name, text, body) {
    writeFileSync(join(world, name), text);
    try {
        return await body();
    } finally {
        rmSync(join(world, name), { force: true });
    }
}

// As long as the body runs, the page's calls of tvsc that match the pattern (of grep -E) wait.
export const holding = (pattern, body) => withFile('hold', pattern, body);

// As long as the body runs, the page's calls of tvsc that match the pattern fail with status 5, and with this answer.
export const refusing = (pattern, answer, body) => withFile('answer', answer, () => withFile('refuse', pattern, body));

export async function until(holds, what, ms = 25000) {
    for (const end = Date.now() + ms; !(await holds());) {
        if (Date.now() > end) throw new Error(`not in ${ms} ms: ${what}`);
        await new Promise(resolve => setTimeout(resolve, 50));
    }
}

// The promise's own end, or a failure when that does not come in time.
export function within(ms, what, promise) {
    let timer;
    const late = new Promise((_, reject) => { timer = setTimeout(() => reject(new Error(`not in ${ms} ms: ${what}`)), ms); });
    return Promise.race([promise, late]).finally(() => clearTimeout(timer));
}
