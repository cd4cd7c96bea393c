// SPDX-License-Identifier: MIT
// translations_test: a page whose texts a language lacks is not built.
import { strict as assert } from 'node:assert';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import { checkTranslation, textsOfFolder } from '../../cockpit/translations.js';

const sources = new URL('../../cockpit/src', import.meta.url).pathname;
const german = new URL('../../cockpit/po/de.po', import.meta.url).pathname;

function withFolder(check) {
    const folder = mkdtempSync(join(tmpdir(), 'translations.'));
    try {
        check(folder);
    } finally {
        rmSync(folder, { recursive: true });
    }
}

// The German texts with one of them changed.
const withChanged = (change, check) => withFolder(folder => {
    writeFileSync(join(folder, 'de.po'), change(readFileSync(german, 'utf8')));
    check(join(folder, 'de.po'));
});

// A page of one source.
const withSource = (source, check) => withFolder(folder => {
    writeFileSync(join(folder, 'manifest.json'), '{"menu": {"index": {"label": "Services"}}}');
    writeFileSync(join(folder, 'view.tsx'), source);
    check(folder);
});

test('what the sources say is found, in all the ways in which they say it', () => {
    const said = textsOfFolder(sources);
    for (const text of ['Create service', '$0 time', 'Win32 services']) assert.ok(said.has(text), text);
});

test('German says all of it', () => checkTranslation(sources, german));

test('a text that a language lacks is named', () => {
    withChanged(texts => texts.replace(/msgid "Create service"\nmsgstr ".*"\n/, ''), file =>
        assert.throws(() => checkTranslation(sources, file), /lacks "Create service"/));
});

test('a text that has no translation is named', () => {
    withChanged(texts => texts.replace(/(msgid "Create service"\nmsgstr) ".*"/, '$1 ""'), file =>
        assert.throws(() => checkTranslation(sources, file), /lacks "Create service"/));
});

test('a text that nothing says any more is named', () => {
    withChanged(texts => `${texts}\nmsgid "Once upon a time"\nmsgstr "Es war einmal"\n`, file =>
        assert.throws(() => checkTranslation(sources, file), /nothing says "Once upon a time"/));
});

test('a text that is said past the translation is named, with its place', () => {
    withSource('export const a = <p>{_("Fine")}</p>;\nexport const b = <p>Wrong words</p>;\n', folder =>
        assert.throws(() => textsOfFolder(folder), /view\.tsx:2: "Wrong words" is in one language/));
    withSource('export const c = <Button aria-label="Wrong words" />;\n', folder =>
        assert.throws(() => textsOfFolder(folder), /view\.tsx:1: "Wrong words" is in one language/));
    withSource('export const d = _(made);\n', folder => assert.throws(() => textsOfFolder(folder), /no text/));
});
