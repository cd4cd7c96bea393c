// SPDX-License-Identifier: MIT
// actions: what the page has tvsc do to services, from the click to what became of it.
//
// An action is shown while tvsc waits; one that has failed stays with tvsc's reason until it is taken away, one that
// went well for a few seconds.
import { askNow } from "./services";
import { makeStore } from "./store";
import { ActionAnswer, Ended, Named, firstFailure, isSame, run } from "./tvsc";
import { _, format } from "./text";

export type Verb = "start" | "stop" | "restart" | "pause" | "continue" | "reload" | "reset" | "enable" | "disable" | "unmask" | "delete" | "create" | "config";

export interface Action {
    id: number;
    verb: Verb;
    named: Named;
    options: string[];
    startedAt: number;
    ended: Ended<ActionAnswer> | null; // null while it goes on
}

// What may help after a failure, as a button; for the service that failed, which may be one that the action went through.
export interface NextStep { label: string; verb: Verb; named: Named; options: string[] }

const goodMs = 8000;
const actions = makeStore<Action[]>([]);
export const useActions = actions.use;
let lastId = 0;

// A new attempt makes what is said of the service's last one out of date.
function add(verb: Verb, named: Named, options: string[], ended: Ended<ActionAnswer> | null): Action {
    const action: Action = { id: ++lastId, verb, named, options, startedAt: Date.now(), ended };
    actions.set([...actions.get().filter(other => !isSame(other.named, named) || !other.ended), action]);
    return action;
}

export function dismiss(id: number) {
    actions.set(actions.get().filter(action => action.id !== id));
}

const dismissSoon = (action: Action) => window.setTimeout(() => dismiss(action.id), goodMs);

// Has tvsc do it; whether it went well.
export async function act(verb: Verb, named: Named, options: string[] = []): Promise<boolean> {
    const action = add(verb, named, options, null);
    const ended = await run<ActionAnswer>([verb, "--json", ...options], named);
    actions.set(actions.get().map(other => other.id === action.id ? { ...action, ended } : other));
    askNow(["enable", "disable", "unmask"].includes(verb) ? named : undefined);
    if (ended.status === 0) dismissSoon(action);
    return ended.status === 0;
}

// Shows what became of something that was done elsewhere; what tvsc remarked on stays until it is taken away.
export function tell(verb: Verb, named: Named, ended: Ended<ActionAnswer>) {
    const action = add(verb, named, [], ended);
    if (ended.status === 0 && !ended.words) dismissSoon(action);
}

export function verbWord(verb: Verb): string {
    switch (verb) {
    case "start": return _("Start");
    case "stop": return _("Stop");
    case "restart": return _("Restart");
    case "pause": return _("Pause");
    case "continue": return _("Continue");
    case "reload": return _("Reload");
    case "reset": return _("Reset");
    case "enable": return _("Enable");
    case "disable": return _("Disable");
    case "unmask": return _("Unmask");
    case "delete": return _("Delete");
    case "create": return _("Create");
    case "config": return _("Edit");
    }
}

export function ongoingText(action: Action): string {
    const name = action.named.name;
    switch (action.verb) {
    case "start": return format(_("$0 is being started"), name);
    case "stop": return format(_("$0 is being stopped"), name);
    case "restart": return format(_("$0 is being restarted"), name);
    case "pause": return format(_("$0 is being paused"), name);
    case "continue": return format(_("$0 is being continued"), name);
    default: return format(_("$0: $1"), name, verbWord(action.verb));
    }
}

export function endedText(action: Action): string {
    const name = action.named.name;
    if (action.ended?.status !== 0) {
        switch (action.verb) {
        case "start": return format(_("$0 was not started"), name);
        case "stop": return format(_("$0 was not stopped"), name);
        case "restart": return format(_("$0 was not restarted"), name);
        default: return format(_("$0: $1 failed"), name, verbWord(action.verb));
        }
    }
    switch (action.verb) {
    case "start": return format(_("$0 was started"), name);
    case "stop": return format(_("$0 was stopped"), name);
    case "restart": return format(_("$0 was restarted"), name);
    case "pause": return format(_("$0 is paused"), name);
    case "continue": return format(_("$0 goes on"), name);
    case "reload": return format(_("$0 reads its configuration again"), name);
    case "delete": return format(_("$0 was deleted"), name);
    case "create": return format(_("$0 was created"), name);
    case "config": return format(_("$0 was changed"), name);
    default: return format(_("$0: $1 done"), name, verbWord(action.verb));
    }
}

export function nextSteps(action: Action): NextStep[] {
    const { ended, verb, named } = action;
    const failure = ended && ended.status !== 0 ? firstFailure(ended) : undefined;
    if (!ended || !failure) return [];
    // The same once more, with all that it was told, and this.
    const again = (label: string, option: string): NextStep => ({ label, verb, named, options: [...new Set([...action.options, option])] });
    const mend = (label: string, step: Verb): NextStep => ({ label, verb: step, named: failure, options: [] });
    const own = isSame(failure, named);
    switch (failure.win32) {
    case 1068: // ERROR_SERVICE_DEPENDENCY_FAIL
        return verb === "start" ? [again(_("Start what it needs, too"), "--with-deps")] : [];
    case 1051: // ERROR_DEPENDENT_SERVICES_RUNNING
        return [again(_("Include the services that depend on it"), "--with-dependents")];
    case 1058: // ERROR_SERVICE_DISABLED
        if (/it is masked/.test(`${failure.text} ${ended.words}`)) return [mend(own ? _("Unmask it") : format(_("Unmask $0"), failure.name), "unmask")];
        return [
            again(_("Start it this once"), "--force"),
            mend(own ? _("Enable it") : format(_("Enable $0"), failure.name), "enable"),
        ];
    case 1056: // ERROR_SERVICE_ALREADY_RUNNING
    case 1061: // ERROR_SERVICE_CANNOT_ACCEPT_CTRL
        return [mend(_("Have the daemon forget its process"), "reset")];
    default:
        return [];
    }
}
