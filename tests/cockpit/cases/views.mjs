// SPDX-License-Identifier: MIT
// views: the other views: dependencies, start times, findings, export and apply.
import { strict as assert } from 'node:assert';
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { act, button, cases, goTo, row, shows } from '../browser.mjs';
import { config, find, holding, outputOf, refusing, services, state, tvscText, until, world } from '../world.mjs';

cases['the graph has every service as a link, and is looked at closely'] = async page => {
    await goTo(page, 'graph');
    const picture = page.getByRole('region', { name: 'What depends on what' });
    await picture.waitFor();
    for (const name of ['web', 'ring_a', 'Дата', 'خدمة', 'a*b']) assert.equal(await picture.locator(`[data-service="${name}"]`).count(), 1, name);
    const width = () => picture.locator('svg').evaluate(svg => svg.getBoundingClientRect().width);
    const before = await width();
    await act(button(page, 'Look closer'));
    assert.ok((await width()) > before * 1.2);
    await act(button(page, 'Look from farther away'));
    await picture.focus();
    await picture.press('+');
    assert.ok((await width()) > before * 1.2);
    await picture.press('0');
    assert.equal(await width(), before);
    await picture.locator('[data-service="ring_a"]').focus();
    await page.keyboard.press('Enter');
    await page.getByRole('heading', { name: 'ring_a' }).waitFor();
};

cases['the start times are drawn, and lead to the services that started'] = async page => {
    await goTo(page, 'timeline');
    const link = page.getByRole('region', { name: 'What a start took' }).locator('[data-service="rpcsvc"]').first();
    await link.focus();
    await page.keyboard.press('Enter');
    await page.getByRole('heading', { name: 'rpcsvc' }).waitFor();
};

cases['a finding is mended by its button'] = async page => {
    tvscText('start', 'spooler');
    process.kill(find('spooler').pid_hint, 'SIGKILL');
    await goTo(page, 'findings');
    const finding = page.locator('.tv-findings > *', { hasText: 'spooler' });
    await finding.waitFor();
    await act(finding.getByRole('button', { name: /^Mend it/ }));
    await finding.waitFor({ state: 'detached' });
    assert.equal(find('spooler').exit.win32, 1067);
    assert.equal(state('spooler'), 'stopped');
};

cases['a disabled service that another needs is mended by its button, what takes a decision has none'] = async page => {
    tvscText('create', 'keen', '--exec', '/bin/sleep 100000', '--start', 'auto', '--depends', 'fax,nosuch');
    await goTo(page, 'findings');
    const finding = page.locator('.tv-findings > *', { hasText: 'tvsc config fax --start demand' });
    const open = page.locator('.tv-findings > *', { hasText: 'tvsc config keen --depends ...' });
    await finding.waitFor();
    await open.waitFor();
    assert.equal(await open.getByRole('button', { name: /^Mend it/ }).count(), 0);
    await act(open.getByRole('button', { name: 'Edit keen' }));
    assert.equal(await page.getByRole('dialog', { name: 'Edit keen' }).getByLabel('Depends on').inputValue(), 'fax,nosuch');
    await act(button(page, 'Cancel'));
    assert.equal(config('fax').start, 'disabled');
    await act(finding.getByRole('button', { name: /^Mend it/ }));
    await finding.waitFor({ state: 'detached' });
    assert.equal(config('fax').start, 'demand');
    assert.equal(state('fax'), 'stopped');
    tvscText('config', 'fax', '--start', 'disabled');
    tvscText('delete', 'keen', '--stop');
};

cases['services are exported as text, and made of it'] = async page => {
    await goTo(page, 'transfer');
    await act(button(page, 'Show'));
    const text = page.getByLabel('The services as text');
    await text.waitFor();
    const exported = await text.inputValue();
    assert.equal(exported, tvscText('export'));
    const [download] = await Promise.all([page.waitForEvent('download'), act(button(page, 'Save as a file'))]);
    assert.equal(readFileSync(await download.path(), 'utf8'), exported);
    await page.getByLabel('Services to apply').fill(exported.replace('Print spooler', 'Drucker'));
    await act(button(page, 'Show what would be done'));
    await shows(page, 'This would be done');
    await shows(page, /Drucker/);
    assert.equal(find('spooler').display_name, 'Print spooler');
    await act(button(page, 'Apply'));
    await shows(page, 'This was done');
    assert.equal(find('spooler').display_name, 'Drucker');
    const file = join(world, 'services.toml');
    writeFileSync(file, exported);
    await page.getByLabel('A file with services').setInputFiles(file);
    await act(button(page, 'Show what would be done'));
    await shows(page, 'This would be done');
    await act(button(page, 'Apply'));
    await shows(page, 'This was done');
    assert.equal(find('spooler').display_name, 'Print spooler');
};

cases['only what was shown to be done is applied, whatever is entered meanwhile'] = async page => {
    const text = page.getByLabel('Services to apply');
    const show = button(page, 'Show what would be done');
    const exported = tvscText('export');
    await goTo(page, 'transfer');
    // A file that takes its time to be read is there when the plan is asked for, and comes in before that is.
    await page.evaluate(() => { File.prototype.text = () => new Promise(resolve => { globalThis.endReading = resolve; }); });
    const file = join(world, 'late.toml');
    writeFileSync(file, 'late');
    await page.getByLabel('A file with services').setInputFiles(file);
    await text.fill(exported.replace('Print spooler', 'Planned'));
    await holding('^apply .*--dry-run', async () => {
        await act(show);
        await until(() => text.isDisabled(), 'the text waits');
        assert.ok(await page.getByLabel('A file with services').isDisabled());
        assert.ok(await page.getByLabel('Delete services that the text does not have').isDisabled());
        await page.evaluate(later => globalThis.endReading(later), exported.replace('Print spooler', 'Never shown'));
        await until(async () => (await text.inputValue()).includes('Never shown'), 'the file has been read');
    });
    await until(() => show.isEnabled(), 'the plan is there');
    assert.ok(await button(page, 'Apply').isDisabled());
    assert.equal(await page.getByText('This would be done').count(), 0);
    assert.equal(find('spooler').display_name, 'Print spooler');
};

cases['a finding is mended whose service has a name like an option, or one that is no text'] = async page => {
    const odd = services().find(service => service.name_bytes);
    for (const service of [find('-n'), odd]) {
        const now = () => services().find(one => one.name === service.name);
        outputOf('sh', '-c', `tvsc start --name="$(printf %s "$1" | base64 -d)"`, 'sh', service.name_bytes ?? Buffer.from(service.name).toString('base64'));
        await until(() => now().state === 'running', `${service.name} runs`);
        process.kill(now().pid_hint, 'SIGKILL');
        await goTo(page, '');
        await row(page, '-n').getByText(/Process gone|Failed/).waitFor();
        await goTo(page, 'findings');
        const finding = page.locator('.tv-findings > *', { has: page.getByRole('link', { name: service.name, exact: true }), hasText: 'status --fresh' });
        await finding.waitFor();
        await act(finding.getByRole('button', { name: /^Mend it/ }));
        await finding.waitFor({ state: 'detached' });
        await until(() => now().state === 'stopped' && now().exit.win32 === 1067, `${service.name} is stopped`);
    }
};

cases['a finding that would have a living process forgotten asks first'] = async page => {
    const found = { level: 'warn', area: 'process', name: 'spooler', found: 'has reported nothing yet', why: '', command: 'tvsc reset spooler' };
    tvscText('start', 'spooler');
    await refusing('^doctor', JSON.stringify({ findings: [found] }), async () => {
        await goTo(page, 'findings');
        await act(page.getByRole('button', { name: /^Mend it/ }));
        await page.getByRole('dialog', { name: 'Forget the process of spooler?' }).waitFor();
        await act(button(page, 'Cancel'));
        await page.getByRole('dialog').waitFor({ state: 'detached' });
    });
    assert.equal(state('spooler'), 'running');
    tvscText('stop', 'spooler');
};

cases['a drawing stays as somebody looks at it when a state changes'] = async page => {
    tvscText('stop', 'spooler');
    await goTo(page, 'graph');
    const picture = page.getByRole('region', { name: 'What depends on what' });
    await picture.locator('[data-service="spooler"]').waitFor();
    await act(button(page, 'Look closer'));
    await act(button(page, 'Look closer'));
    const zoom = () => page.locator('.tv-zoom-value').innerText();
    const before = await zoom();
    await picture.locator('[data-service="ring_a"]').focus();
    tvscText('start', 'spooler');
    await picture.locator('[aria-label="spooler, Running"]').waitFor();
    await page.waitForTimeout(2000); // drawn anew by tvsc, too
    assert.equal(await zoom(), before);
    assert.equal(await page.evaluate(() => document.activeElement.getAttribute('data-service')), 'ring_a');
    tvscText('stop', 'spooler');
};

cases['the wheel with Ctrl looks closer at a drawing, and leaves the page as large as it is'] = async page => {
    await goTo(page, 'graph');
    const picture = page.getByRole('region', { name: 'What depends on what' });
    await picture.locator('svg').waitFor();
    const zoom = async () => parseInt(await page.locator('.tv-zoom-value').innerText(), 10);
    const before = await zoom();
    const goesOn = ctrlKey => picture.evaluate((region, held) =>
        region.dispatchEvent(new WheelEvent('wheel', { deltaY: -100, ctrlKey: held, bubbles: true, cancelable: true })), ctrlKey);
    assert.ok(await goesOn(false), 'it scrolls without Ctrl');
    assert.equal(await zoom(), before);
    assert.equal(await goesOn(true), false, 'nothing is left to the browser');
    await until(async () => (await zoom()) > before, 'it is larger');
};
