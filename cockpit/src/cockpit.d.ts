// SPDX-License-Identifier: MIT
// cockpit: the part of Cockpit's base1/cockpit.js that the page uses.

interface CockpitFailure {
    message: string; // what the process wrote to standard error, or what went wrong in Cockpit's words
    problem: string | null; // "not-found", "access-denied", "terminated", "disconnected", ...; null when it just failed
    exit_status: number | null;
    exit_signal: string | null;
}

interface CockpitProcess {
    // What is left of standard output, and standard error.
    then(done: (output: string, errors: string) => void, failed: (failure: CockpitFailure) => void): void;
    stream(piece: (text: string) => void): CockpitProcess;
    input(text: string, more?: boolean): CockpitProcess;
    close(problem?: string): void;
}

interface CockpitLocation {
    path: string[];
    options: Record<string, string | string[]>;
    go(path: string[], options?: Record<string, string>): void;
    replace(path: string[], options?: Record<string, string>): void;
    decode(href: string): string[];
    encode(path: string[], options?: Record<string, string>): string;
}

interface Cockpit {
    spawn(command: string[], options: { superuser?: "try" | "require"; err?: "message" | "out" | "ignore"; environ?: string[] }): CockpitProcess;
    location: CockpitLocation;
    hidden: boolean;
    language: string;
    addEventListener(event: string, listener: () => void): void;
    removeEventListener(event: string, listener: () => void): void;
    gettext(text: string): string;
    ngettext(one: string, many: string, count: number): string;
    format(text: string, ...values: (string | number)[]): string;
    translate(): void;
    permission(options: { admin: boolean }): {
        allowed: boolean | null;
        addEventListener(event: "changed", listener: () => void): void;
    };
}

declare const cockpit: Cockpit;
