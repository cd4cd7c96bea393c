// SPDX-License-Identifier: MIT
// tvsc: runs the command line of services and reads its JSON. The schema of each object is told in tvsc(1).
//
// Everything the page knows and does goes through here: no port, no state of ours. Rights are asked for as Cockpit's
// own pages do: with administrative access tvsc runs as root, else as the user who is logged in.

export type StateName = "stopped" | "start_pending" | "stop_pending" | "running" | "continue_pending" | "pause_pending" | "paused" | "unknown";
export type StartName = "boot" | "system" | "auto" | "demand" | "disabled";

export interface Named {
    name: string;
    name_bytes?: string; // base64, where the name is not UTF-8
}

// What tells one service from all others: names that are no UTF-8 may look alike.
export const keyOf = ({ name, name_bytes }: Named): string => name_bytes === undefined ? name : `\0${name_bytes}`;
export const isSame = (one: Named, other: Named): boolean => keyOf(one) === keyOf(other);

// The page's path to a service, and the service that such a path leads to.
export const pathOf = ({ name, name_bytes }: Named): string[] => ["service", name, ...(name_bytes === undefined ? [] : [name_bytes])];
export const namedIn = ([, name, name_bytes]: string[]): Named => ({ name: name ?? "", ...(name_bytes ? { name_bytes } : {}) });

export interface Config {
    start: StartName | string;
    image_path: string;
    group: string;
    depends_on: string[];
    depends_on_groups: string[];
    account: string;
    command?: string;
    description?: string;
    // Where not all of it is UTF-8:
    image_path_bytes?: string;
    group_bytes?: string;
    depends_on_bytes?: string[];
    depends_on_groups_bytes?: string[];
    account_bytes?: string;
    command_bytes?: string;
    description_bytes?: string;
}

// Whether nobody can start it, until it is unmasked: it has an account then that no machine has.
export const isMasked = (config: Config | undefined): boolean => config?.account.startsWith(":masked") ?? false;

// Whether tvhost runs the service's program: its image is the launcher of tvhost then, wherever that lies.
export const isHosted = (config: Config | undefined): boolean => config?.image_path.split("/").pop() === "tvhost.csh";

export interface Program {
    pid: number;
    host_pid: number;
    phase: string;
    uptime_ms: number;
    processes: number;
    memory_bytes: number;
    cpu_ms: number;
    restarts: number;
    next_attempt_ms: number; // since the epoch; 0 for none
    says: string;
    reason: string;
    log: string;
    last_lines: string[];
}

export interface Service extends Named {
    display_name: string;
    display_name_bytes?: string;
    state: StateName;
    state_code: number;
    accepts: string[];
    exit?: { win32: number; service_specific: number };
    check_point?: number;
    wait_hint_ms?: number;
    pid_hint?: number;
    process_gone?: boolean;
    uptime_ms?: number;
    type?: string[];
    config?: Config;
    program?: Program;
}

export interface Problem extends Named {
    win32: number;
    symbol: string;
    message: string;
    suggest?: string[];
}

export interface Daemon {
    reachable: boolean;
    initialized: boolean;
    init_code: number;
    locked?: boolean;
}

export interface StatusAnswer { daemon: Daemon; services: Service[]; errors: Problem[] }
export interface ActionAnswer {
    results: (Named & { action: string; win32: number; exit_status: number; text: string })[];
    errors: Problem[];
}
export interface RelationAnswer { services: Service[] }
// What export tells of a service; parameters are those of tvhost, by their names.
export interface ServiceText { parameters?: Record<string, string | number | string[]> }
export interface ExportAnswer { services: ServiceText[] }
export interface PlanAnswer { steps: (Named & { action: string; why: string })[]; worst_case_s: number }
export interface Finding extends Named { level: "fail" | "warn" | "info"; area: string; found: string; why: string; command: string; command_bytes?: string }
export interface FindingsAnswer { findings: Finding[] }

// What a run of tvsc has come to.
export interface Ended<Answer> {
    status: number; // tvsc's exit status; -1 when it could not be run or did not end by itself
    output: string;
    words: string;  // what it wrote to standard error: the reason and the next step
    problem: string | null; // Cockpit's word for what kept it from running
    answer: Answer | null;  // the object that it wrote
}

// tvsc chooses what is visible in a text by its locale, and Cockpit's own need not know more than ASCII.
const environ = ["LC_ALL=C.UTF-8", "TVSC_COLOR=never"];

// tvsc's command line, for a service where one is given. A name that no text can hold reaches tvsc through a shell.
export function commandLine(words: string[], named?: Named): string[] {
    if (!named) return ["tvsc", ...words];
    if (!named.name_bytes) return ["tvsc", ...words, `--name=${named.name}`];
    const script = 'name=$(printf %s "$1" | base64 -d; echo .); shift; exec tvsc "$@" --name="${name%.}"';
    return ["sh", "-c", script, "tvsc", named.name_bytes, ...words];
}

export function spawn(words: string[], named?: Named): CockpitProcess {
    return cockpit.spawn(commandLine(words, named), { superuser: "try", err: "message", environ });
}

function parse<Answer>(output: string): Answer | null {
    try {
        return JSON.parse(output) as Answer;
    } catch {
        return null; // it ended before it could say anything, or was not asked for JSON
    }
}

// Runs tvsc to its end and tells what it came to; never rejects. What it reads from standard input may be given.
export function run<Answer>(words: string[], named?: Named, input?: string): Promise<Ended<Answer>> {
    return new Promise(resolve => {
        const process = spawn(words, named);
        let output = "";
        process.stream(piece => { output += piece });
        const end = (status: number, errors: string | undefined, problem: string | null) =>
            resolve({ status, output, words: (errors ?? "").trim(), problem, answer: parse<Answer>(output) });
        process.then(
            (_rest, errors) => end(0, errors, null),
            failure => end(failure.exit_status ?? -1, failure.message, failure.problem));
        if (input !== undefined) process.input(input);
    });
}

// What failed first, which need not be the service that was asked for.
export const firstFailure = (ended: Ended<ActionAnswer>) => ended.answer?.results.find(result => result.win32 !== 0);
