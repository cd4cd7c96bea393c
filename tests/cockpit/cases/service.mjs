// SPDX-License-Identifier: MIT
// service: the view of one service, and what is done there.
import { strict as assert } from 'node:assert';
import { act, button, cases, goTo, row, shows } from '../browser.mjs';
import { refusing, startDaemon, state, stopDaemon, tvsc, tvscText, until } from '../world.mjs';

cases['a service is restarted, paused, continued and reloaded from its own view'] = async page => {
    tvscText('start', 'web', '--with-deps');
    await goTo(page, 'service/web');
    const process = () => tvsc('status', '--json', 'web').services[0].program.pid;
    const before = process();
    await act(button(page, 'Restart'));
    await until(() => state('web') === 'running' && process() !== before, 'another process');
    await act(button(page, 'Pause'));
    await until(() => state('web') === 'paused', 'web is paused');
    await act(button(page, 'Continue'));
    await until(() => state('web') === 'running', 'web goes on');
    await act(button(page, 'Reload'));
    await shows(page, 'web reads its configuration again');
    await act(button(page, 'Stop'));
    await until(() => state('web') === 'stopped', 'web is stopped');
};

cases['a service shows what it does, what it runs and what stands around it'] = async page => {
    tvscText('start', 'web', '--with-deps');
    await goTo(page, 'service/web');
    const program = tvsc('status', '--json', 'web').services[0].program;
    await shows(page, `${program.pid}`);
    await shows(page, '/bin/busybox httpd -f -p 127.0.0.1:8080 -h /etc');
    await shows(page, 'dbcache, +base');
    await act(page.locator('.tv-related').getByRole('link', { name: 'dbcache' }));
    await page.getByRole('heading', { name: 'dbcache' }).waitFor();
    await until(async () => /web\s+Running/.test(await page.locator('.tv-related').last().innerText()), 'web needs it');
};

cases['a service that fails says why: its code, its last words, its log'] = async page => {
    await act(button(page, 'Start indexer')); // which runs for a moment, or is found to have failed at once
    await row(page, 'indexer').getByText('Failed (1066)').waitFor();
    await act(row(page, 'indexer').getByRole('link', { name: 'indexer' }));
    await shows(page, /The service ended with its own code 3 \(1066\): ended with status 3/);
    await until(async () => /the index is broken/.test(await page.getByRole('log', { name: 'Log' }).innerText()), 'the log is there');
};

cases['pause, continue and reload are for one service, whatever depends on it'] = async page => {
    tvscText('start', 'web', '--with-deps');
    await goTo(page, 'service/dbcache');
    await act(button(page, 'Pause'));
    await until(() => state('dbcache') === 'paused', 'dbcache is paused');
    assert.equal(state('web'), 'running');
    await act(button(page, 'Continue'));
    await until(() => state('dbcache') === 'running', 'dbcache goes on');
    assert.equal(state('web'), 'running');
};

cases['a log shows new lines as they come, until it is told not to'] = async page => {
    tvscText('create', 'talker', '--exec', "/bin/sh -c 'i=0; while :; do i=$((i+1)); echo line $i; sleep 0.3; done'");
    tvscText('start', 'talker');
    await goTo(page, 'service/talker');
    const log = page.getByRole('log', { name: 'Log' });
    await until(async () => /line \d/.test(await log.innerText()), 'a first line');
    const before = await log.innerText();
    await until(async () => (await log.innerText()).length > before.length, 'further lines', 3000);
    await log.evaluate(element => {
        window.emptied = false;
        new MutationObserver(() => { window.emptied ||= !/line \d/.test(element.textContent) })
            .observe(element, { childList: true, characterData: true, subtree: true });
    });
    await page.getByLabel('Show new lines as they come').press('Space');
    await page.waitForTimeout(1500); // by then the lines so far have been read once more
    const still = await log.innerText();
    assert.equal(await page.evaluate(() => window.emptied), false, 'the lines were there all the time');
    await page.waitForTimeout(1500);
    assert.equal(await log.innerText(), still);
    tvscText('delete', 'talker', '--stop');
};

cases['what a service needs is not called nothing where it cannot be read'] = async page => {
    await row(page, 'web').waitFor();
    await refusing('^deps', '', async () => {
        await goTo(page, 'service/web');
        await page.locator('.tv-cards').getByText('refused by the test').waitFor();
        assert.equal(await page.getByText('It needs no other service.').count(), 0);
        await shows(page, 'No other service needs it.');
    });
};

cases['a log stays when the daemon stops'] = async page => {
    tvscText('create', 'talker', '--exec', "/bin/sh -c 'echo last words; exec sleep 100000'");
    tvscText('start', 'talker');
    await goTo(page, 'service/talker');
    const log = page.getByRole('log', { name: 'Log' });
    await until(async () => /last words/.test(await log.innerText()), 'the log is there');
    stopDaemon();
    await shows(page, 'The services cannot be read');
    await page.waitForTimeout(5000); // what the program does has been asked for since
    assert.match(await log.innerText(), /last words/);
    startDaemon();
    await page.getByText('The services cannot be read').waitFor({ state: 'detached' });
    tvscText('delete', 'talker', '--stop');
};
