// SPDX-License-Identifier: MIT
// machines: the page on a machine that was added in Cockpit, which reaches it with ssh.
import { strict as assert } from 'node:assert';
import { Skipped, act, button, cases, open, row } from '../browser.mjs';
import { find, tvsc, until } from '../world.mjs';

const address = process.env.TV_FAR;

cases['on another machine the page shows and changes the services of that one'] = async (page, browser) => {
    if (!address) throw new Skipped(process.env.TV_NO_FAR);
    const distant = () => tvsc(`--host=${address}`, 'list', '--json').services.find(service => service.name === 'distant');
    assert.equal(find('distant'), undefined, 'it is there and nowhere else');
    const origin = new URL(process.env.TV_COCKPIT_URL).origin;
    const whole = await open(browser, { url: `${origin}/@${address}/tv-services` });
    const far = whole.frameLocator('iframe[name*="tv-services"]');
    await row(far, 'distant').getByText('On another machine').waitFor({ timeout: 90000 }); // ssh, and the page again, from there
    assert.equal(await row(far, 'web').count(), 0);
    await act(button(far, 'Start distant'));
    await until(() => distant().state === 'running', 'it runs there');
    await row(far, 'distant').getByText('Running').waitFor();
    await act(button(far, 'Stop distant'));
    await until(() => distant().state === 'stopped', 'it is stopped there');
    await whole.context().close();
};
