// SPDX-License-Identifier: MIT
// build: makes the page, ready for /usr/share/cockpit/tv-services, in the folder given (dist unless told otherwise).
import esbuild from 'esbuild';
import gettext from 'gettext-parser';
import { copyFileSync, mkdirSync, readdirSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { basename, join } from 'node:path';
import { checkTranslation } from './translations.js';

const home = import.meta.dirname ?? new URL('.', import.meta.url).pathname;
const folder = process.argv[2] ?? join(home, 'dist');
const limitBytes = 1_000_000;

// What Cockpit loads in place of po.js for a language: its base library's locale() with all texts.
function translationScript(file) {
    const po = gettext.po.parse(readFileSync(file));
    const forms = /plural=([^;]+)/.exec(po.headers['Plural-Forms'])[1];
    const texts = Object.values(po.translations['']).filter(entry => entry.msgid !== '' && entry.msgstr.every(text => text));
    const entries = texts.map(entry => `${JSON.stringify(entry.msgid)}:${JSON.stringify([null, ...entry.msgstr])}`);
    return `cockpit.locale({"":{"plural-forms":n=>${forms},"language":"${po.headers.Language}","language-direction":"ltr"},\n${entries.join(',\n')}});\n`;
}

// Cockpit serves the fonts that its own pages use; PatternFly's copies of them stay away.
const withoutFonts = {
    name: 'without-fonts',
    setup(build) {
        build.onLoad({ filter: /react-core\/dist\/styles\/base\.css$/ }, ({ path }) => ({
            contents: readFileSync(path, 'utf8').replace(/@font-face\s*{[^}]*}/g, ''),
            loader: 'css',
        }));
    },
};

rmSync(folder, { recursive: true, force: true });
mkdirSync(folder, { recursive: true });
await esbuild.build({
    entryPoints: { page: join(home, 'src/app.tsx') },
    outdir: folder,
    bundle: true,
    minify: true,
    format: 'iife',
    target: 'es2020',
    jsx: 'automatic',
    legalComments: 'linked',
    external: ['../../static/*'],
    loader: { '.svg': 'file' },
    assetNames: '[name]',
    plugins: [withoutFonts],
    define: { 'process.env.NODE_ENV': '"production"' },
    logLevel: 'warning',
});
for (const file of ['index.html', 'manifest.json']) copyFileSync(join(home, 'src', file), join(folder, file));
for (const file of readdirSync(join(home, 'po')).filter(name => name.endsWith('.po'))) {
    checkTranslation(join(home, 'src'), join(home, 'po', file));
    writeFileSync(join(folder, `po.${basename(file, '.po')}.js`), translationScript(join(home, 'po', file)));
}
writeFileSync(join(folder, 'po.js'), '');

const bytes = readdirSync(folder).reduce((sum, file) => sum + statSync(join(folder, file)).size, 0);
if (bytes > limitBytes) throw new Error(`${folder} has ${bytes} bytes, more than ${limitBytes}`);
console.log(`${folder}: ${bytes} bytes`);
