// SPDX-License-Identifier: MIT
// translations: what the sources say to people, and whether a language says all of it.
import gettext from 'gettext-parser';
import { readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';
import ts from 'typescript';

const translators = { _: 1, gettext: 1, N_: 1, ngettext: 2 }; // how many of the first arguments are texts

// The texts of one source, in the order of the page.
function textsOf(file) {
    const source = ts.createSourceFile(file, readFileSync(file, 'utf8'), ts.ScriptTarget.Latest, true);
    const found = [];
    const visit = node => {
        if (ts.isCallExpression(node)) {
            const callee = ts.isPropertyAccessExpression(node.expression) ? node.expression.name : node.expression;
            const count = ts.isIdentifier(callee) && Object.hasOwn(translators, callee.text) ? translators[callee.text] : 0;
            const texts = node.arguments.slice(0, count);
            if (texts.length > 0 && texts.every(ts.isStringLiteralLike)) found.push(texts[0].text);
        }
        ts.forEachChild(node, visit);
    };
    visit(source);
    return found;
}

export function textsOfFolder(folder) {
    const sources = readdirSync(folder).filter(name => /\.tsx?$/.test(name) && !name.endsWith('.d.ts'));
    const texts = new Set(sources.flatMap(name => textsOf(join(folder, name))));
    texts.add(JSON.parse(readFileSync(join(folder, 'manifest.json'), 'utf8')).menu.index.label);
    return texts;
}

// Throws with the texts that the language lacks, and those that nothing says any more.
export function checkTranslation(folder, file) {
    const entries = gettext.po.parse(readFileSync(file)).translations[''];
    const said = textsOfFolder(folder);
    const lacking = [...said].filter(text => !entries[text]?.msgstr.every(translation => translation));
    const left = Object.keys(entries).filter(text => text !== '' && !said.has(text));
    const lines = [...lacking.map(text => `lacks ${JSON.stringify(text)}`), ...left.map(text => `nothing says ${JSON.stringify(text)}`)];
    if (lines.length > 0) throw new Error(`${file}:\n  ${lines.join('\n  ')}`);
}
