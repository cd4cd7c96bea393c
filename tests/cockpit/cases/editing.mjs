// SPDX-License-Identifier: MIT
// editing: creating, changing and deleting services.
import { strict as assert } from 'node:assert';
import { existsSync, readFileSync } from 'node:fs';
import { act, button, cases, chooseMore, goTo, row, shows } from '../browser.mjs';
import { config, find, holding, outputOf, state, tvsc, tvscText, until, world } from '../world.mjs';

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

cases['a description is entered, changed and taken away, lines and all'] = async page => {
    tvscText('create', 'described', '--exec', '/bin/sleep 1000', '--description', 'One <i>line</i>');
    const dialog = page.getByRole('dialog', { name: 'Edit described' });
    await goTo(page, 'service/described');
    for (const [before, after] of [['One <i>line</i>', '-two\nlines: Ümlaut'], ['-two\nlines: Ümlaut', '']]) {
        await act(page.locator('.tv-cards').getByRole('button', { name: 'Edit', exact: true }));
        assert.equal(await dialog.getByLabel('Description', { exact: true }).inputValue(), before);
        await dialog.getByLabel('Description', { exact: true }).fill(after);
        await act(button(page, 'Save'));
        await dialog.waitFor({ state: 'detached' });
        assert.equal(tvsc('show', '--json', 'described').services[0].config.description ?? '', after);
    }
    tvscText('delete', 'described');
};

cases['each field of what tvhost runs is shown as it is, checked by tvsc and changed by itself'] = async page => {
    tvscText('create', 'hosted', '--env', 'KEPT=as it is', '--env', 'COLOUR=red', '--exec', "/bin/sh -c 'echo $COLOUR in $PWD, $KEPT; exec sleep 1000'");
    const parameters = () => tvsc('export', '--json', 'hosted').services[0].parameters;
    const dialog = page.getByRole('dialog', { name: 'Edit hosted' });
    const openDialog = async () => {
        await act(page.locator('.tv-cards').getByRole('button', { name: 'Edit', exact: true }));
        await dialog.getByLabel('Environment').waitFor();
    };
    const save = async () => {
        await act(button(page, 'Save'));
        await dialog.waitFor({ state: 'detached' });
    };
    const change = async (fill, changed) => {
        const before = parameters();
        await openDialog();
        await fill();
        await save();
        assert.deepEqual(parameters(), { ...before, ...changed });
    };
    await goTo(page, 'service/hosted');
    await openDialog();
    assert.equal(await dialog.getByLabel('Environment').inputValue(), 'KEPT=as it is\nCOLOUR=red');
    await dialog.getByLabel('Environment').fill('KEPT=as it is\nno variable');
    await act(button(page, 'Save'));
    await shows(page, /no variable: not NAME=VALUE/);
    await act(button(page, 'Cancel'));

    await change(() => dialog.getByLabel('Environment').fill('KEPT=as it is\nCOLOUR=dark green\nMORE=a=b'),
        { AppEnvironment: ['KEPT=as it is', 'COLOUR=dark green', 'MORE=a=b'] });
    await change(() => dialog.getByLabel('Environment').fill('KEPT=as it is\nCOLOUR=dark green'),
        { AppEnvironment: ['KEPT=as it is', 'COLOUR=dark green'] });
    await change(() => dialog.getByLabel('Working folder').fill('/usr/share'), { AppDirectory: '/usr/share' });
    await change(() => dialog.getByLabel('When the program ends by itself').selectOption('on-failure'), { AppRestart: 'on-failure' });
    await change(() => dialog.getByLabel('Log', { exact: true }).selectOption('file'), { AppLog: 'file' });
    await change(() => dialog.getByLabel('File for its error messages').fill(`${world}/hosted.errors`), { AppStderr: `${world}/hosted.errors` });

    await openDialog(); // all of it is there again
    assert.equal(await dialog.getByLabel('Working folder').inputValue(), '/usr/share');
    assert.equal(await dialog.getByLabel('When the program ends by itself').inputValue(), 'on-failure');
    assert.equal(await dialog.getByLabel('Log', { exact: true }).inputValue(), 'file');
    assert.equal(await dialog.getByLabel('File for its output').inputValue(), '');
    assert.equal(await dialog.getByLabel('File for its error messages').inputValue(), `${world}/hosted.errors`);
    await act(button(page, 'Cancel'));
    await act(button(page, 'Start'));
    await until(async () => /dark green in \/usr\/share, as it is/.test(await page.getByRole('log', { name: 'Log' }).innerText()), 'the program has it all');

    await change(() => dialog.getByLabel('File for its output').fill(`${world}/hosted.output`), { AppStdout: `${world}/hosted.output` });
    await act(button(page, 'Restart'));
    await until(() => existsSync(`${world}/hosted.output`) && /dark green/.test(readFileSync(`${world}/hosted.output`, 'utf8')), 'its output goes there');
    tvscText('delete', 'hosted', '--stop');
};

cases['a service with an image of its own keeps it, until it is told to run a program'] = async page => {
    const before = config('mute');
    await goTo(page, 'service/mute');
    await act(page.locator('.tv-cards').getByRole('button', { name: 'Edit', exact: true }));
    const dialog = page.getByRole('dialog', { name: 'Edit mute' });
    assert.equal(await dialog.getByLabel('What it runs').inputValue(), 'image');
    assert.equal(await dialog.getByLabel('Path of the script').inputValue(), before.image_path);
    assert.equal(await dialog.getByLabel('Environment').count(), 0);
    await dialog.getByLabel('What it runs').selectOption('exec');
    await dialog.getByLabel('Program and arguments').fill('/bin/sleep 1000');
    await act(button(page, 'Save'));
    await dialog.waitFor({ state: 'detached' });
    assert.equal(config('mute').command, '/bin/sleep 1000');
    tvscText('config', 'mute', '--image', before.image_path);
    assert.equal(config('mute').image_path, before.image_path);
};

cases['what is no text in a configuration stays, whatever else is changed'] = async page => {
    outputOf('sh', '-c', `tvsc create bytes --exec '/bin/sleep 1000' --depends "$(printf 'rpcsvc,caf\\351')"`);
    const before = config('bytes');
    assert.ok(before.depends_on_bytes);
    await goTo(page, 'service/bytes');
    await act(page.locator('.tv-cards').getByRole('button', { name: 'Edit', exact: true }));
    const dialog = page.getByRole('dialog', { name: 'Edit bytes' });
    await dialog.getByLabel('Depends on').waitFor();
    assert.ok(await dialog.getByLabel('Depends on').isDisabled());
    await dialog.getByText(/Not all of this is text/).waitFor();
    await dialog.getByLabel('Display name').fill('Bytes');
    await act(button(page, 'Save'));
    await dialog.waitFor({ state: 'detached' });
    assert.equal(find('bytes').display_name, 'Bytes');
    assert.deepEqual(config('bytes'), before);
    tvscText('delete', 'bytes');
};

cases['a dialog stays as long as it saves'] = async page => {
    await goTo(page, 'service/spooler');
    await act(page.locator('.tv-cards').getByRole('button', { name: 'Edit', exact: true }));
    const dialog = page.getByRole('dialog', { name: 'Edit spooler' });
    await dialog.getByLabel('Display name').fill('Slowly saved');
    await holding('^config', async () => {
        await act(button(page, 'Save'));
        await until(() => page.locator('button[form="tv-edit"]').isDisabled(), 'it saves');
        assert.ok(await button(page, 'Cancel').isDisabled());
        await page.keyboard.press('Escape');
        await page.waitForTimeout(300);
        assert.equal(await dialog.count(), 1);
    });
    await dialog.waitFor({ state: 'detached' });
    assert.equal(find('spooler').display_name, 'Slowly saved');
    tvscText('config', 'spooler', '--display', 'Print spooler');
};
