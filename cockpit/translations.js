// SPDX-License-Identifier: MIT
// translations: what the sources say to people, and whether a language says all of it.
import gettext from 'gettext-parser';
import { readFileSync, readdirSync } from 'node:fs';
import { basename, join } from 'node:path';
import ts from 'typescript';

const translators = { _: 1, gettext: 1, N_: 1, ngettext: 2 }; // how many of the first arguments are texts

const spokenAttributes = new Set(['aria-label', 'aria-valuetext', 'label', 'placeholder', 'title']);
const hasWords = text => /\p{L}{2}/u.test(text);

// The texts of one source, in the order of the page; complain is told each that no language can have.
function textsOf(file, complain) {
    const source = ts.createSourceFile(file, readFileSync(file, 'utf8'), ts.ScriptTarget.Latest, true);
    const found = [];
    const tell = (node, what) => complain(`${basename(file)}:${source.getLineAndCharacterOfPosition(node.getStart()).line + 1}: ${what}`);
    const visit = node => {
        if (ts.isCallExpression(node)) {
            const callee = ts.isPropertyAccessExpression(node.expression) ? node.expression.name : node.expression;
            const count = ts.isIdentifier(callee) && Object.hasOwn(translators, callee.text) ? translators[callee.text] : 0;
            const texts = node.arguments.slice(0, count);
            if (count > 0 && texts.every(ts.isStringLiteralLike)) found.push(texts[0].text);
            else if (count > 0 && basename(file) !== 'text.ts') tell(node, 'what is translated is no text'); // there they are made
        }
        if (ts.isJsxText(node) && hasWords(node.text)) tell(node, `${JSON.stringify(node.text.trim())} is in one language`);
        if (ts.isJsxAttribute(node) && spokenAttributes.has(node.name.getText()) && node.initializer &&
            ts.isStringLiteral(node.initializer) && hasWords(node.initializer.text)) {
            tell(node, `${JSON.stringify(node.initializer.text)} is in one language`);
        }
        ts.forEachChild(node, visit);
    };
    visit(source);
    return found;
}

// Throws with what is said in one language only.
export function textsOfFolder(folder) {
    const sources = readdirSync(folder).filter(name => /\.tsx?$/.test(name) && !name.endsWith('.d.ts'));
    const complaints = [];
    const texts = new Set(sources.flatMap(name => textsOf(join(folder, name), complaint => complaints.push(complaint))));
    if (complaints.length > 0) throw new Error(`${folder}:\n  ${complaints.join('\n  ')}`);
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
