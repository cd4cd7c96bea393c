// SPDX-License-Identifier: MIT
// daemon: what the page does when the daemon goes and comes.
import { strict as assert } from 'node:assert';
import { act, button, cases, row, shows } from '../browser.mjs';
import { calls, refusing, startDaemon, state, stopDaemon, tvscText, until } from '../world.mjs';

cases['the list follows the daemon: gone, and back'] = async page => {
    await row(page, 'rpcsvc').getByText('Running').waitFor();
    stopDaemon();
    await shows(page, 'The services cannot be read');
    await shows(page, /1722 RPC_S_SERVER_UNAVAILABLE/);
    assert.equal(await row(page, 'rpcsvc').count(), 1);
    await act(button(page, 'Start spooler'));
    await shows(page, 'spooler was not started');
    startDaemon();
    await page.getByText('The services cannot be read').waitFor({ state: 'detached', timeout: 5000 });
    await row(page, 'rpcsvc').getByText('Running').waitFor();
    await act(button(page, 'Start spooler'));
    await until(() => state('spooler') === 'running', 'spooler runs');
    await act(button(page, 'Stop spooler'));
    await until(() => state('spooler') === 'stopped', 'spooler is stopped');
};

cases['a watch that ends at once is not begun again at once, and the list comes all the same'] = async page => {
    await row(page, 'rpcsvc').waitFor();
    await refusing('^watch', '', async () => {
        await page.reload();
        await row(page, 'rpcsvc').waitFor();
        const before = calls().length;
        await page.waitForTimeout(8000);
        const since = calls().slice(before);
        const watches = since.filter(call => call.startsWith('watch')).length;
        const lists = since.filter(call => call.startsWith('list --json --brief')).length;
        assert.ok(watches >= 1 && watches <= 5, `${watches} watches`);
        assert.ok(lists >= 4, `${lists} lists`);
        tvscText('start', 'spooler');
        await row(page, 'spooler').getByText('Running').waitFor({ timeout: 5000 });
    });
    tvscText('stop', 'spooler');
    await row(page, 'spooler').getByText('Stopped').waitFor();
};
