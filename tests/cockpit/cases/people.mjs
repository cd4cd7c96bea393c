// SPDX-License-Identifier: MIT
// people: the page by keyboard alone, for those who do not see it, in another language, in Cockpit's own window.
import { strict as assert } from 'node:assert';
import { act, button, cases, goTo, open, row, shows, takePictures, views, violations } from '../browser.mjs';
import { config, find, state, tvscText, until } from '../world.mjs';

// Presses a key until what has the focus is called so.
async function pressTo(page, key, name) {
    const heldName = () => page.evaluate(() => {
        const held = document.activeElement;
        return (held.getAttribute('aria-label') ?? held.labels?.[0]?.textContent ?? held.textContent).replace(/\*/g, '').trim();
    });
    for (let presses = 0; presses < 150; ++presses) {
        if (await heldName() === name) return;
        await page.keyboard.press(key);
    }
    throw new Error(`${key} does not lead to ${name}`);
}

cases['the keyboard alone suffices: a service is created, started, stopped and deleted'] = async page => {
    const tabTo = name => pressTo(page, 'Tab', name);
    await row(page, 'spooler').waitFor();
    await tabTo('Create service');
    await page.keyboard.press('Enter');
    await tabTo('Name');
    await page.keyboard.type('typed');
    await tabTo('Program and arguments');
    await page.keyboard.type('/bin/sleep 1000');
    await tabTo('Start type');
    await page.keyboard.press('ArrowUp'); // from on demand to automatic
    await tabTo('Create');
    await page.keyboard.press('Enter');
    await page.getByRole('heading', { name: 'typed', exact: true }).waitFor();
    assert.equal(config('typed').command, '/bin/sleep 1000');
    assert.equal(config('typed').start, 'auto');
    await tabTo('Start');
    await page.keyboard.press('Enter');
    await until(() => state('typed') === 'running', 'typed runs');
    await tabTo('Stop');
    await page.keyboard.press('Space');
    await until(() => state('typed') === 'stopped', 'typed is stopped');

    const choose = async item => {
        await tabTo('More for typed');
        await page.keyboard.press('Enter');
        await page.getByRole('menuitem', { name: item }).waitFor();
        await pressTo(page, 'ArrowDown', item);
        await page.keyboard.press('Enter');
        await page.getByRole('dialog', { name: 'Delete typed?' }).waitFor();
    };
    await choose('Delete');
    await page.keyboard.press('Escape');
    await page.getByRole('dialog').waitFor({ state: 'detached' });
    assert.equal(state('typed'), 'stopped');
    await choose('Delete');
    await tabTo('Delete');
    await page.keyboard.press('Enter');
    await until(() => state('typed') === undefined, 'typed is gone');
    await tabTo('Services');
    await page.keyboard.press('Enter');
    await row(page, 'spooler').waitFor();
};

cases['German says all of it'] = async (page, browser) => {
    const german = await open(browser, { language: 'de' });
    await row(german, 'rpcsvc').getByText('Läuft').waitFor();
    await german.getByRole('link', { name: 'Befunde' }).waitFor();
    assert.equal(await german.locator('html').getAttribute('lang'), 'de');
    assert.equal(await german.title(), 'Win32-Dienste');
    await goTo(german, 'service/web');
    await shows(german, 'eigener Prozess');
    await german.context().close();
};

cases['Cockpit\'s own window has the page in its menu'] = async (page, browser) => {
    const whole = await open(browser, { url: `${new URL(process.env.TV_COCKPIT_URL).origin}/tv-services`, path: '' });
    await whole.getByRole('link', { name: 'Win32 services' }).waitFor();
    const frame = whole.frameLocator('iframe[name*="tv-services"]');
    await frame.locator('tr[data-service="web"]').waitFor();
    whole.troubles.length = 0; // what its own pages miss without the system's bus is theirs
    await whole.context().close();
};

cases['no view has anything that axe finds wrong, narrow or wide, light or dark'] = async (page, browser) => {
    tvscText('start', 'web', '--with-deps');
    tvscText('start', 'indexer');
    const found = [];
    for (const dark of [false, true]) {
        for (const width of [375, 768, 1440]) {
            const other = await open(browser, { width, dark, bypassCSP: true }); // for axe, which is put into the page
            for (const [view, path] of Object.entries(views)) {
                await goTo(other, path);
                await other.waitForTimeout(700);
                found.push(...await violations(other, `${view}, ${width}, ${dark ? 'dark' : 'light'}`));
            }
            const look = async what => found.push(...await violations(other, `${what}, ${width}, ${dark ? 'dark' : 'light'}`));
            await goTo(other, '');
            await act(button(other, 'Create service'));
            await other.getByRole('dialog').getByLabel('Environment').waitFor();
            await look('creating');
            await act(button(other, 'Cancel'));
            await act(button(other, 'Stop rpcsvc'));
            await other.getByRole('dialog').waitFor();
            await look('question');
            await act(button(other, 'Cancel'));
            await other.getByRole('dialog').waitFor({ state: 'detached' });
            await act(button(other, 'Start fax'));
            await shows(other, 'fax was not started');
            await look('refusal');
            await other.context().close();
        }
    }
    assert.equal(found.join('\n'), '');
};

if (process.env.TV_PICTURES) {
    cases['pictures are taken of every view'] = async (page, browser) => {
        tvscText('start', 'web', '--with-deps');
        tvscText('start', 'indexer');
        tvscText('start', 'spooler');
        process.kill(find('spooler').pid_hint, 'SIGKILL');
        await takePictures(browser, process.env.TV_PICTURES);
        tvscText('reset', 'spooler');
    };
}

cases['the focus stays on the button that started a service, and on the menu that something was chosen from'] = async page => {
    const focused = () => page.evaluate(() => document.activeElement.getAttribute('aria-label'));
    await act(button(page, 'Start spooler'));
    await button(page, 'Stop spooler').waitFor();
    await page.waitForTimeout(500);
    assert.equal(await focused(), 'Stop spooler');
    await page.keyboard.press('Enter');
    await until(() => state('spooler') === 'stopped', 'spooler is stopped');
    await button(page, 'Start spooler').waitFor();
    await act(button(page, 'More for spooler'));
    await pressTo(page, 'ArrowDown', 'Disable');
    await page.keyboard.press('Enter');
    await until(() => config('spooler').start === 'disabled', 'spooler is disabled');
    assert.equal(await focused(), 'More for spooler');
    assert.equal(await page.getByRole('menuitem').count(), 0);
    tvscText('config', 'spooler', '--start', 'demand');
};

cases['what is being done and what is wrong is read out when it changes, not each second'] = async page => {
    await button(page, 'Start mute').waitFor();
    // What is read out: text that changes where the next region around it is a live one.
    await page.evaluate(() => {
        globalThis.readOut = [];
        const look = records => records.forEach(({ target, addedNodes, type }) => {
            const near = target.nodeType === Node.ELEMENT_NODE ? target : target.parentElement;
            const region = near?.closest('[aria-live]');
            if (!region || region.getAttribute('aria-live') === 'off' || (type === 'childList' && addedNodes.length === 0)) return;
            globalThis.readOut.push({ text: near.textContent, atomic: region.getAttribute('aria-atomic') });
        });
        new MutationObserver(look).observe(document.body, { subtree: true, childList: true, characterData: true });
    });
    await act(button(page, 'Start mute'));
    await shows(page, /The daemon has been busy for \d+ s/);
    await page.waitForTimeout(5000);
    const first = await page.evaluate(() => globalThis.readOut);
    assert.ok(first.some(({ text }) => text.includes('mute is being started')), 'the start is read out');
    assert.ok(first.some(({ text }) => text.includes('It serves one request at a time')), 'what is wrong is read out');
    assert.ok(first.every(({ atomic }) => atomic === 'false'), 'only what is new');
    assert.ok(first.length <= 6, JSON.stringify(first));
    await page.getByText('mute was not started').waitFor({ timeout: 60000 });
    const all = await page.evaluate(() => globalThis.readOut);
    assert.ok(all.some(({ text }) => text.includes('mute was not started')), 'its end is read out');
};
