// SPDX-License-Identifier: MIT
// list: the list of services: what it shows, chooses and sorts, and what is done from it.
import { strict as assert } from 'node:assert';
import { act, button, cases, chooseMore, goTo, row, shows } from '../browser.mjs';
import { calls, config, find, holding, outputOf, refusing, services, state, tvscText, until } from '../world.mjs';

cases['the list shows every service with its state, its names as they are'] = async page => {
    await row(page, 'web').waitFor();
    for (const service of services()) assert.equal(await row(page, service.name.replace(/\\/g, '\\\\')).count(), 1, service.name);
    assert.match(await row(page, 'rpcsvc').innerText(), /Running/);
    assert.match(await row(page, 'web').innerText(), /Web <b>front<\/b> & shop/);
    assert.match(await row(page, 'Дата').innerText(), /База данных/);
};

cases['search and filters choose, and can be taken away'] = async page => {
    const rows = page.locator('tbody tr');
    await row(page, 'web').waitFor();
    await page.getByLabel('Search services').fill('print');
    await until(async () => (await rows.count()) === 1, 'one service matches');
    assert.equal(await row(page, 'spooler').count(), 1);
    await page.getByLabel('Search services').fill('no such thing');
    await act(button(page, 'Show all services'));
    await until(async () => (await rows.count()) === services().length, 'all are back');
    await act(page.locator('#tv-kind-running'));
    await until(async () => (await rows.count()) === services().filter(one => one.state === 'running').length, 'what runs');
    await act(page.locator('#tv-kind-all'));
    await page.getByLabel('Show services by start type').selectOption('disabled');
    await until(async () => (await rows.count()) === 1 && (await row(page, 'fax').count()) === 1, 'what is disabled');
};

cases['a click on a heading sorts, and a second one turns the order round'] = async page => {
    await row(page, 'web').waitFor();
    const names = async () => page.locator('tbody tr').evaluateAll(rows => rows.map(one => one.dataset.service));
    const before = await names();
    await act(page.getByRole('columnheader', { name: 'Name', exact: true }).getByRole('button'));
    assert.deepEqual(await names(), before.reverse());
    assert.equal(await page.getByRole('columnheader', { name: 'Name', exact: true }).getAttribute('aria-sort'), 'descending');
};

cases['a service is started and stopped from the list'] = async page => {
    await act(button(page, 'Start spooler'));
    await until(() => state('spooler') === 'running', 'spooler runs');
    await shows(page, 'spooler was started');
    await act(button(page, 'Stop spooler'));
    await until(() => state('spooler') === 'stopped', 'spooler is stopped');
};

cases['names that are options, patterns, other scripts or no text are started like any other'] = async page => {
    for (const name of ['-n', 'a*b', 'Дата', 'خدمة']) {
        await act(button(page, `Start ${name}`));
        await until(() => state(name) === 'running', `${name} runs`);
        tvscText('stop', `--name=${name}`);
    }
    const odd = services().find(service => service.name_bytes);
    assert.equal(Buffer.from(odd.name_bytes, 'base64').toString('latin1'), 'caf\xe9');
    await act(button(page, `Start ${odd.name}`));
    await until(() => state(odd.name) === 'running', `${odd.name} runs`);
    await act(button(page, `Stop ${odd.name}`));
    await until(() => state(odd.name) === 'stopped', `${odd.name} is stopped`);
};

cases['a start alone fails with tvsc\'s reason, and the next step starts what is needed, too'] = async page => {
    await act(button(page, 'Start web'));
    await page.getByRole('dialog', { name: 'Start web and what it needs?' }).waitFor();
    await shows(page, 'Start dbcache');
    await act(button(page, 'Only this one'));
    await shows(page, 'web was not started');
    await shows(page, /1068 ERROR_SERVICE_DEPENDENCY_FAIL/);
    assert.equal(state('web'), 'stopped');
    await act(button(page, 'Start what it needs, too'));
    await until(() => state('web') === 'running' && state('dbcache') === 'running', 'both run');
};

cases['a stop asks before it takes others along, which are stopped first'] = async page => {
    tvscText('start', 'web', '--with-deps');
    await act(button(page, 'Stop rpcsvc'));
    const dialog = page.getByRole('dialog', { name: 'Stop rpcsvc and what depends on it?' });
    await dialog.waitFor();
    assert.deepEqual(await dialog.locator('li b').allInnerTexts(), ['Stop web', 'Stop dbcache', 'Stop rpcsvc']);
    await act(button(page, 'Cancel'));
    assert.equal(state('rpcsvc'), 'running');
    await act(button(page, 'Stop rpcsvc'));
    await act(button(page, 'All of these'));
    await until(() => ['web', 'dbcache', 'rpcsvc'].every(name => state(name) === 'stopped'), 'all three are stopped');
    tvscText('start', 'rpcsvc');
};

cases['a disabled service is started once, or enabled, by the steps that its refusal offers'] = async page => {
    await act(button(page, 'Start fax'));
    await shows(page, /1058 ERROR_SERVICE_DISABLED/);
    await act(button(page, 'Start it this once'));
    await until(() => state('fax') === 'running', 'fax runs');
    tvscText('stop', 'fax');
    await until(async () => /Stopped/.test(await row(page, 'fax').innerText()), 'the page knows');
    await act(button(page, 'Start fax'));
    await act(button(page, 'Enable it'));
    await until(() => config('fax').start === 'auto', 'fax is automatic');
    await row(page, 'fax').getByText('Automatic').waitFor();
    await chooseMore(page, 'fax', 'Disable');
    await until(() => config('fax').start === 'disabled', 'fax is disabled');
    await row(page, 'fax').getByText('Disabled').waitFor();
};

cases['a start that takes its time shows how far it is, and that the daemon is busy'] = async page => {
    await act(button(page, 'Start mute'));
    await shows(page, 'mute is being started');
    await shows(page, /The daemon has been busy for \d+ s/);
    await page.getByText('mute was not started').waitFor({ timeout: 60000 });
    await shows(page, /1053/);
};

cases['a process that dies is noticed, and forgotten on request'] = async page => {
    tvscText('start', 'spooler');
    await row(page, 'spooler').getByText('Running').waitFor();
    process.kill(find('spooler').pid_hint, 'SIGKILL');
    await row(page, 'spooler').getByText('Process gone').waitFor();
    await chooseMore(page, 'spooler', 'Forget its process');
    await until(() => state('spooler') === 'stopped' && find('spooler').exit.win32 === 1067, 'stopped with 1067');
};

cases['services whose names look alike, being no text, are told apart: their links, views and buttons'] = async page => {
    const twins = { acute: 'caf\\351', grave: 'caf\\350' };
    const twin = word => services().find(service => service.name_bytes === Buffer.from(word === 'acute' ? 'caf\xe9' : 'caf\xe8', 'latin1').toString('base64'));
    const shell = script => outputOf('sh', '-c', script);
    shell(`tvsc create --name="$(printf '${twins.grave}')" --display grave --exec '/bin/sleep 100000'`);
    shell(`tvsc config --name="$(printf '${twins.acute}')" --display acute`);
    assert.equal(twin('acute').name, twin('grave').name);
    for (const [word, other] of [['grave', 'acute'], ['acute', 'grave']]) {
        await goTo(page, '');
        await act(page.locator('tbody tr', { hasText: word }).getByRole('link'));
        await page.locator('.tv-cards').getByText(word).waitFor();
        await act(button(page, 'Start'));
        await until(() => twin(word).state === 'running', `${word} runs`);
        assert.equal(twin(other).state, 'stopped');
        await goTo(page, '');
        await page.locator('tbody tr', { hasText: word }).getByText('Running').waitFor();
        assert.match(await page.locator('tbody tr', { hasText: other }).innerText(), /Stopped/);
        await act(page.locator('tbody tr', { hasText: word }).getByRole('button', { name: /^Stop/ }));
        await until(() => twin(word).state === 'stopped', `${word} is stopped`);
        await page.locator('tbody tr', { hasText: word }).getByText('Stopped').waitFor();
    }
    shell(`tvsc delete --name="$(printf '${twins.grave}')"; tvsc config --name="$(printf '${twins.acute}')" --display ''`);
    assert.equal(twin('grave'), undefined);
};

cases['what is offered after a failure is for the service that failed, and keeps what was asked for'] = async page => {
    tvscText('stop', 'web', 'dbcache', '--with-dependents');
    tvscText('disable', 'dbcache');
    const before = config('web').start;
    await act(button(page, 'Start web'));
    await act(button(page, 'All of these'));
    await shows(page, 'web was not started');
    await act(button(page, 'Enable dbcache'));
    await until(() => config('dbcache').start === 'auto', 'dbcache is enabled');
    assert.equal(config('web').start, before);
    tvscText('disable', 'dbcache');
    await act(button(page, 'Start web'));
    await act(button(page, 'All of these'));
    await act(button(page, 'Start it this once'));
    await until(() => state('web') === 'running' && state('dbcache') === 'running', 'both run');
    tvscText('config', 'dbcache', '--start', 'demand');

    const sent = calls().length;
    await goTo(page, 'service/dbcache');
    await page.locator('.tv-title').getByText('Running').waitFor();
    await chooseMore(page, 'dbcache', 'Delete');
    const refusal = { results: [{ name: 'dbcache', action: 'delete', win32: 1051, exit_status: 5, text: '' }], errors: [] };
    await refusing('^delete .*--name=dbcache', JSON.stringify(refusal), async () => {
        await act(page.getByRole('dialog').getByRole('button', { name: 'Delete', exact: true }));
        await act(button(page, 'Include the services that depend on it'));
        await until(() => calls().slice(sent).filter(call => call.startsWith('delete')).length === 2, 'it is tried again');
    });
    assert.equal(calls().slice(sent).filter(call => call.startsWith('delete'))[1], 'delete --json --stop --with-dependents --name=dbcache');
};

cases['a masked service is unmasked by the step that its refusal offers'] = async page => {
    tvscText('mask', 'spooler');
    await act(button(page, 'Start spooler'));
    await shows(page, 'spooler was not started');
    await act(button(page, 'Unmask it'));
    await until(() => config('spooler').account === '', 'it is unmasked');
    await act(button(page, 'Start spooler'));
    await until(() => state('spooler') === 'running', 'spooler runs');
    tvscText('stop', 'spooler');
};

cases['a process that lives is forgotten only by somebody who was asked'] = async page => {
    tvscText('start', 'spooler');
    const living = find('spooler').pid_hint;
    await row(page, 'spooler').getByText('Running').waitFor();
    const dialog = page.getByRole('dialog', { name: 'Forget the process of spooler?' });
    await chooseMore(page, 'spooler', 'Forget its process');
    await dialog.waitFor();
    await act(button(page, 'Cancel'));
    await dialog.waitFor({ state: 'detached' });
    assert.equal(state('spooler'), 'running');
    await chooseMore(page, 'spooler', 'Forget its process');
    await act(button(page, 'Forget it'));
    await until(() => state('spooler') === 'stopped' && find('spooler').exit.win32 === 1067, 'stopped with 1067');
    process.kill(living, 'SIGKILL');
};

cases['no service is said not to match as long as configurations are not read'] = async page => {
    await holding('^list --json$', async () => {
        await page.reload();
        await row(page, 'fax').waitFor();
        await page.getByLabel('Show services by start type').selectOption('disabled');
        await page.getByRole('progressbar', { name: 'Loading' }).waitFor();
        assert.equal(await page.getByText('No service matches').count(), 0);
    });
    await row(page, 'fax').waitFor();
    await page.getByLabel('Show services by start type').selectOption('boot');
    await shows(page, 'No service matches');
};
