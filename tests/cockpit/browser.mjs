// SPDX-License-Identifier: MIT
// browser: starts one, opens the page in it for each case, and tells what became of the cases.
//
// Everything that is waited for has a limit: a call of a program, a step on the page, a case, the browser's end.
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { until, within } from './world.mjs';

const require = createRequire(new URL('../../cockpit/package.json', import.meta.url));
const { chromium } = require('playwright-core');

export const pageUrl = `${process.env.TV_COCKPIT_URL}/tv-services/index.html`;
export const limitedUrl = `${process.env.TV_LIMITED_URL}/tv-services/index.html`;
const axeSource = require.resolve('axe-core/axe.min.js');

const stepMs = 25000;
const caseMs = 300000;
const closeMs = 10000;

// The tests in the order in which they run, by what they show: each takes a page that is open at the list, and the
// browser.
export const cases = {};

// Thrown by a case that cannot be tried here, with the reason: it counts as neither passed nor failed.
export class Skipped extends Error {}

// --- what a person does and sees ---------------------------------------------------------------------------------

export const row = (page, name) => page.locator(`tr[data-service="${name}"]`);
export const button = (page, name) => page.getByRole('button', { name, exact: true });
export const goTo = (page, path) => page.evaluate(to => { location.hash = `#/${to}`; }, path);
export const shows = (page, text) => page.getByText(text).first().waitFor();

// As a person does without a mouse: focus and Enter.
export async function act(control) {
    await control.focus();
    await control.press('Enter');
}

export async function chooseMore(page, name, item) {
    await act(button(page, `More for ${name}`));
    await page.getByRole('menuitem', { name: item, exact: true }).click();
}

// --- pages and cases ---------------------------------------------------------------------------------------------

export async function open(browser, { url = pageUrl, path = '', width = 1440, height = 900, dark = false, language, bypassCSP = false } = {}) {
    const context = await browser.newContext({ viewport: { width, height }, colorScheme: dark ? 'dark' : 'light', bypassCSP });
    if (language) await context.addCookies([{ name: 'CockpitLang', value: language, url: process.env.TV_COCKPIT_URL }]);
    const page = await context.newPage();
    page.setDefaultTimeout(stepMs);
    page.setDefaultNavigationTimeout(stepMs);
    page.troubles = [];
    page.on('pageerror', error => page.troubles.push(error.message));
    page.on('console', message => { if (message.type() === 'error') page.troubles.push(message.text()); });
    await page.goto(`${url}#/${path}`);
    return page;
}

// Closes a page's context, or the browser; what does not end is left to the private host's end.
const close = one => within(closeMs, 'closed', one.close()).catch(() => {});

// Tells what went wrong, and keeps pictures of the pages that are open where they are wanted.
async function tellFailure(name, error, browser, count) {
    const lines = `${error.stack}`.replace(/\x1b\[\d+m/g, '').split('\n').slice(0, 40);
    console.log(`FAIL ${name}\n${lines.join('\n     ')}`);
    if (!process.env.TV_FAILURES) return;
    for (const [index, page] of browser.contexts().flatMap(context => context.pages()).entries()) {
        await page.screenshot({ path: join(process.env.TV_FAILURES, `${count}-${index + 1}.png`), timeout: closeMs }).catch(() => {});
    }
}

// Runs a case on a page of its own; returns what went wrong, null for nothing.
async function runCase(body, page, browser) {
    try {
        await within(caseMs, 'the case', body(page, browser));
        return page.troubles.length > 0 ? new Error(`the browser says: ${page.troubles.join('; ')}`) : null;
    } catch (error) {
        return error;
    }
}

// Runs the cases whose names have one of the words, or all; and ends this process.
export async function run(words) {
    const browser = await chromium.launch({
        executablePath: '/usr/bin/chromium',
        timeout: stepMs,
        args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
            '--disable-component-update', '--disable-sync', `--crash-dumps-dir=${process.env.TMPDIR}`],
    });
    const chosen = Object.entries(cases).filter(([name]) => words.length === 0 || words.some(word => name.includes(word)));
    let failed = 0;
    let skipped = 0;
    for (const [name, body] of chosen) {
        const begin = Date.now();
        const page = await open(browser);
        const error = await runCase(body, page, browser);
        if (error instanceof Skipped) {
            ++skipped;
            console.log(`skip ${name}: ${error.message}`);
        } else if (error) await tellFailure(name, error, browser, ++failed);
        else console.log(`ok   ${name} (${Date.now() - begin} ms)`);
        await Promise.all(browser.contexts().map(close));
    }
    await close(browser);
    console.log(`${chosen.length - failed - skipped} of ${chosen.length} cases passed, ${skipped} skipped, ${failed} failed`);
    process.exit(failed === 0 && chosen.length > 0 ? 0 : 1);
}

// The views, by what they are called in findings and pictures.
export const views = {
    list: '', service: 'service/web', failed: 'service/indexer', graph: 'graph', timeline: 'timeline', findings: 'findings', transfer: 'transfer',
};

// What axe finds wrong, a line each.
export async function violations(page, where) {
    await page.addScriptTag({ path: axeSource });
    const { violations: found } = await page.evaluate(() => globalThis.axe.run(document, { resultTypes: ['violations'] }));
    return found.map(one => `${where}: ${one.id}: ${one.nodes.map(node => node.target.join(' ')).slice(0, 3).join('; ')}`);
}

// A sheet for each view, with the view at three widths, light and dark: FOLDER/VIEW.jpg.
export async function takePictures(browser, folder) {
    const taken = Object.fromEntries(Object.keys(views).map(view => [view, []]));
    for (const dark of [false, true]) {
        for (const width of [375, 768, 1440]) {
            const page = await open(browser, { width, height: 900, dark });
            for (const [view, path] of Object.entries(views)) {
                await page.evaluate(to => { location.hash = `#/${to}`; }, path);
                await until(async () => (await page.locator('.pf-c-spinner').count()) === 0, `${view} is there`);
                await page.waitForTimeout(1500);
                taken[view].push({ width, png: (await page.screenshot()).toString('base64') });
            }
            await page.context().close();
        }
    }
    const sheet = await browser.newPage({ viewport: { width: 1000, height: 720 } });
    for (const [view, pictures] of Object.entries(taken)) {
        const images = pictures.map(({ width, png }) => `<img src="data:image/png;base64,${png}" style="inline-size:${width * 0.375}px">`);
        await sheet.setContent(`<body style="margin:0;background:#888;display:flex;flex-wrap:wrap;gap:8px;padding:8px">${images.join('')}`);
        await sheet.waitForTimeout(300);
        await sheet.screenshot({ path: join(folder, `${view}.jpg`), type: 'jpeg', quality: 60, fullPage: true });
    }
    await sheet.close();
}
