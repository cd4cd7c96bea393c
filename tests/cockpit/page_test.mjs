// SPDX-License-Identifier: MIT
// page_test: a browser uses the page as a person would, most of it by the keyboard; what it did is checked with tvsc.
import { run } from './browser.mjs';
import './cases/list.mjs';
import './cases/service.mjs';
import './cases/editing.mjs';
import './cases/views.mjs';
import './cases/daemon.mjs';
import './cases/people.mjs';
import './cases/machines.mjs';
import './cases/limits.mjs';
import './cases/rights.mjs';

await run(process.argv.slice(2));
