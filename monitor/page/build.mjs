// node build.mjs OUTPUT: the page's files, with everything that they load in them.
import { build } from 'esbuild';
import { copyFileSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { dirname, join } from 'node:path';

const output = process.argv[2] ?? 'dist';
const bundled = ['uplot', 'jmuxer'];
const packages = createRequire(import.meta.url);

function folderOf(name) {
    let folder = dirname(packages.resolve(name));
    while (!folder.endsWith(join('node_modules', name))) {
        folder = dirname(folder);
    }
    return folder;
}

function licences() {
    return bundled.map((name) => {
        const { version } = JSON.parse(readFileSync(join(folderOf(name), 'package.json'), 'utf8'));
        return `${name} ${version}\n\n${readFileSync(join(folderOf(name), 'LICENSE'), 'utf8')}`;
    }).join(`\n${'-'.repeat(72)}\n\n`);
}

mkdirSync(output, { recursive: true });
await build({
    entryPoints: { page: 'src/main.js', style: 'src/style.css' },
    outdir: output,
    bundle: true,
    format: 'esm',
    target: 'es2022',
    minify: true,
    legalComments: 'none', // they stand in third-party.txt, whole
    alias: {
        // Its built form cannot be imported by name; and it can also be a stream of node's, which no browser has.
        jmuxer: 'jmuxer/src/jmuxer.js',
        stream: './src/no_stream.js',
    },
    logLevel: 'warning',
});
for (const name of ['index.html', 'icon.svg']) {
    copyFileSync(join('src', name), join(output, name));
}
writeFileSync(join(output, 'third-party.txt'), licences());
