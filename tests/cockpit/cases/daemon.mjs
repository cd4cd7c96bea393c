// SPDX-License-Identifier: MIT
// daemon: what the page does when the daemon goes and comes.
import { strict as assert } from 'node:assert';
import { act, button, cases, row, shows } from '../browser.mjs';
import { startDaemon, state, stopDaemon, until } from '../world.mjs';

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
