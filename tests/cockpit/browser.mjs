// SPDX-License-Identifier: MIT
// browser: starts one, opens the page in it for each case, and tells what became of the cases.
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

const require = createRequire(new URL('../../cockpit/package.json', import.meta.url));
const { chromium } = require('playwright-core');

export const pageUrl = `${process.env.TV_COCKPIT_URL}/tv-services/index.html`;
export const limitedUrl = `${process.env.TV_LIMITED_URL}/tv-services/index.html`;
export const axeSource = require.resolve('axe-core/axe.min.js');

// The tests in the order in which they run, by what they show: each takes a page that is open at the list, the context
// that it is in, and the browser.
export const cases = {};

// Runs tvsc and reads its JSON, whatever its exit status.
export function tvsc(...words) {
    return JSON.parse(tvscText(...words));
}

export function tvscText(...words) {
    try {
        return execFileSync('tvsc', words, { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'] });
    } catch (failure) {
        return failure.stdout;
    }
}

export async function until(holds, what, ms = 25000) {
    for (const end = Date.now() + ms; !(await holds());) {
        if (Date.now() > end) throw new Error(`not in ${ms} ms: ${what}`);
        await new Promise(resolve => setTimeout(resolve, 50));
    }
}

// As a person does without a mouse: focus and Enter.
export async function act(control) {
    await control.focus();
    await control.press('Enter');
}

export async function open(browser, { url = pageUrl, path = '', width = 1440, height = 900, dark = false, language, bypassCSP = false } = {}) {
    const context = await browser.newContext({ viewport: { width, height }, colorScheme: dark ? 'dark' : 'light', bypassCSP });
    if (language) await context.addCookies([{ name: 'CockpitLang', value: language, url: process.env.TV_COCKPIT_URL }]);
    const page = await context.newPage();
    page.setDefaultTimeout(25000);
    page.troubles = [];
    page.on('pageerror', error => page.troubles.push(error.message));
    page.on('console', message => { if (message.type() === 'error') page.troubles.push(message.text()); });
    await page.goto(`${url}#/${path}`);
    return page;
}

// Runs the cases whose names have one of the words, or all; each on a page of its own.
export async function run(words) {
    const profile = mkdtempSync(join(tmpdir(), 'tvchromium.'));
    const browser = await chromium.launch({
        executablePath: '/usr/bin/chromium',
        args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
            '--disable-component-update', '--disable-sync', `--crash-dumps-dir=${profile}`],
    });
    const failed = [];
    const chosen = Object.entries(cases).filter(([name]) => words.length === 0 || words.some(word => name.includes(word)));
    for (const [name, body] of chosen) {
        const page = await open(browser);
        const begin = Date.now();
        try {
            await body(page, browser);
            if (page.troubles.length > 0) throw new Error(`the browser says: ${page.troubles.join('; ')}`);
            console.log(`ok   ${name} (${Date.now() - begin} ms)`);
        } catch (error) {
            failed.push(name);
            console.log(`FAIL ${name}\n${error.stack.replace(/\x1b\[\d+m/g, '').split('\n').slice(0, 40).join('\n     ')}`);
            if (process.env.TV_FAILURES) await page.screenshot({ path: join(process.env.TV_FAILURES, `${failed.length}.png`) }).catch(() => {});
        }
        await page.context().close();
    }
    await browser.close();
    rmSync(profile, { recursive: true, force: true });
    console.log(`${chosen.length - failed.length} of ${chosen.length} cases passed`);
    process.exitCode = failed.length === 0 && chosen.length > 0 ? 0 : 1;
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
