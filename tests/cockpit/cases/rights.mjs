// SPDX-License-Identifier: MIT
// rights: a user who may not do what root may. The last cases: the guard stays.
import { execFileSync } from 'node:child_process';
import { join } from 'node:path';
import { Skipped, cases, limitedUrl, open } from '../browser.mjs';
import { callMs } from '../world.mjs';

cases['a user who may not reach the daemon sees why'] = async (page, browser) => {
    try {
        execFileSync(join(process.env.TV_SOURCE, 'packaging/tv-guard'), ['load'], { stdio: 'ignore', timeout: callMs });
    } catch {
        throw new Skipped('nftables cannot be used here');
    }
    const limited = await open(browser, { url: limitedUrl });
    await limited.getByText('The services cannot be read').waitFor();
    await limited.getByText(/adduser nobody tv-admin/).waitFor();
    await limited.getByText('Limited access').waitFor();
    await limited.context().close();
};
