// SPDX-License-Identifier: MIT
// page_test: a browser uses the page as a person would; what it did is checked with tvsc.
import { strict as assert } from 'node:assert';
import { act, cases, run, tvsc, until } from './browser.mjs';


const state = name => tvsc('list', '--json').services.find(service => service.name === name)?.state;
const row = (page, name) => page.locator(`tr[data-service="${name}"]`);

cases['the list shows every service with its state'] = async page => {
    await row(page, 'web').waitFor();
    for (const service of tvsc('list', '--json').services) assert.equal(await row(page, service.name).count(), 1, service.name);
    assert.match(await row(page, 'rpcsvc').innerText(), /Running/);
    assert.match(await row(page, 'web').innerText(), /Web <b>front<\/b> & shop/);
};

cases['a service is started and stopped from the list'] = async page => {
    await act(row(page, 'spooler').getByRole('button', { name: 'Start spooler' }));
    await until(() => state('spooler') === 'running', 'spooler runs');
    await act(row(page, 'spooler').getByRole('button', { name: 'Stop spooler' }));
    await until(() => state('spooler') === 'stopped', 'spooler is stopped');
};

await run(process.argv.slice(2));
