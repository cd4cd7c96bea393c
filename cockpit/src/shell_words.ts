// SPDX-License-Identifier: MIT
// shell_words: a command as tvsc shows it, as the words that a shell would make of it.

// Null where a shell would do more with it than take off quotes: it is not run then.
export function shellWords(command: string): string[] | null {
    const words: string[] = [];
    let word: string | null = null;
    for (let i = 0; i < command.length; ++i) {
        const c = command[i];
        if (c === "'") {
            const end = command.indexOf("'", i + 1);
            if (end < 0) return null;
            word = (word ?? "") + command.slice(i + 1, end);
            i = end;
        } else if (c === "\\" && i + 1 < command.length) word = (word ?? "") + command[++i];
        else if (c === " ") {
            if (word !== null) words.push(word);
            word = null;
        } else if (/["$`;&|<>(){}[\]*?~#!\n\t\\]/.test(c)) return null;
        else word = (word ?? "") + c;
    }
    if (word !== null) words.push(word);
    return words.some(one => one === "...") ? null : words;
}
