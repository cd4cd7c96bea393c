// SPDX-License-Identifier: MIT
// editing: creating, changing and deleting services.
import { strict as assert } from 'node:assert';
import { act, button, cases, chooseMore, goTo, row, shows } from '../browser.mjs';
import { config, find, state, tvscText, until } from '../world.mjs';

cases['a new service is checked by tvsc, remarked on, created and deleted'] = async page => {
    await act(button(page, 'Create service'));
    const dialog = page.getByRole('dialog', { name: 'Create service' });
    await dialog.getByRole('textbox', { name: 'Name', exact: true }).fill('fresh');
    await dialog.getByLabel('Display name').fill('Fresh "air"');
    await dialog.getByLabel('Program and arguments').fill('/no/such/program');
    await dialog.getByLabel('Depends on').fill('rpcsvc, nowhere');
    await dialog.getByLabel('Environment').fill('COLOUR=dark green');
    await dialog.getByLabel('When the program ends by itself').selectOption('on-failure');
    await act(button(page, 'Create'));
    await shows(page, /No such file or directory/);
    assert.equal(find('fresh'), undefined);
    await dialog.getByLabel('Program and arguments').fill("/bin/sh -c 'echo $COLOUR; exec sleep 1000'");
    await act(button(page, 'Create'));
    await shows(page, /nowhere: no such service/); // before it is saved, where tvsc says so then
    if (await button(page, 'Save all the same').count() === 1) {
        assert.equal(find('fresh'), undefined);
        await act(button(page, 'Save all the same'));
    }
    await page.getByRole('heading', { name: 'fresh', exact: true }).waitFor();
    assert.equal(find('fresh').display_name, 'Fresh "air"');
    assert.deepEqual(config('fresh').depends_on, ['rpcsvc', 'nowhere']);
    await act(button(page, 'Start'));
    await until(() => state('fresh') === 'running', 'fresh runs');
    await until(async () => /dark green/.test(await page.getByRole('log', { name: 'Log' }).innerText()), 'its variable is there');
    await chooseMore(page, 'fresh', 'Delete');
    await act(page.getByRole('dialog').getByRole('button', { name: 'Delete', exact: true }));
    await until(() => find('fresh') === undefined, 'fresh is gone');
    await until(async () => (await row(page, 'web').count()) === 1 && (await row(page, 'fresh').count()) === 0, 'the list is back without it');
};

cases['a service is changed in what is changed, and in nothing else'] = async page => {
    const before = config('web');
    await goTo(page, 'service/web');
    await act(page.locator('.tv-cards').getByRole('button', { name: 'Edit', exact: true }));
    const dialog = page.getByRole('dialog', { name: 'Edit web' });
    assert.equal(await dialog.getByLabel('Program and arguments').inputValue(), before.command);
    assert.ok(await button(page, 'Save').isDisabled());
    await dialog.getByLabel('Display name').fill('-dash and Ümlaut');
    await dialog.getByLabel('Start type').selectOption('auto');
    await act(button(page, 'Save'));
    await dialog.waitFor({ state: 'detached' });
    assert.equal(find('web').display_name, '-dash and Ümlaut');
    assert.deepEqual(config('web'), { ...before, start: 'auto', start_code: 2 });
    await shows(page, 'Automatic');
    tvscText('config', 'web', '--display', 'Web <b>front</b> & shop', '--start', 'demand');
};
