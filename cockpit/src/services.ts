// SPDX-License-Identifier: MIT
// services: the live list, one for the whole page.
//
//   state      event                      next state
//   ---------  -------------------------  ----------
//   asking     the first list is there    watching; configurations are read meanwhile
//   watching   tvsc watch tells a change  asking for states, one call for all services
//   any        the daemon is silent       the last picture stays, with the reason; asked again every second
//   any        the page is hidden         nothing is asked until it is seen again
//
// tvsc watch looks once a second, and says a line for each change: nothing is sent while nothing happens. The list is
// asked for all the same now and then, since no line tells of the lock; and every second where tvsc has no watch. One that
// ends at once is begun again after a pause, which grows each time.
//
// Configurations take three calls a service, so they are read apart from the states, which wait for none of them: all
// of them once and again after a long while, those of new services and of our own changes at once.
import { kindOf } from "./states";
import { makeStore } from "./store";
import { Daemon, Named, Service, StatusAnswer, keyOf, run, spawn } from "./tvsc";

export interface Picture {
    services: Service[];
    loaded: boolean;        // there was a list
    configured: boolean;    // the configurations have been read, as far as they can be
    daemon: Daemon | null;
    failure: { words: string; problem: string | null } | null; // why there is no newer list
    busySince: number | null; // when a list was asked for that has not come in time; ms since the epoch
}

const exitUsage = 2;
const pauseMs = 1000;          // between two lists where no watch runs
const watchedPauseMs = 10000;
const watchPausesMs = [1000, 30000]; // before a watch that has ended soon is begun again: at first, and at most
const busyMs = 2500;
const configsMs = 120000;      // somebody else may change a configuration, which no state tells
const singlyRead = 20;         // as many new services are read one by one

const picture = makeStore<Picture>({ services: [], loaded: false, configured: false, daemon: null, failure: null, busySince: null });
export const usePicture = picture.use;

const show = (change: Partial<Picture>) => picture.set({ ...picture.get(), ...change });

// --- configurations ----------------------------------------------------------------------------------------------

// What is known of each service, by its key; there is none for one whose configuration cannot be read, such as that in record 0.
const configs = new Map<string, Pick<Service, "type" | "config">>();
let configsReadAt = 0;
let configsTookMs = 0;
let readingConfigs = false;

const withConfig = (service: Service): Service => ({ ...service, ...configs.get(keyOf(service)) });

function takeConfigs(services: Service[]) {
    services.forEach(service => configs.set(keyOf(service), { type: service.type, config: service.config }));
    show({ services: picture.get().services.map(service => {
        const known = configs.get(keyOf(service));
        return JSON.stringify([known?.type, known?.config]) === JSON.stringify([service.type, service.config]) ? service : renewed(service, withConfig(service));
    }) });
}

async function readAllConfigs() {
    if (readingConfigs) return;
    readingConfigs = true;
    const begin = Date.now();
    const ended = await run<StatusAnswer>(["list", "--json"]);
    configsReadAt = Date.now();
    configsTookMs = configsReadAt - begin;
    readingConfigs = false;
    takeConfigs(ended.answer?.services ?? []);
    if (ended.answer) show({ configured: true });
}

async function readConfigsOf(services: Named[]) {
    services.map(keyOf).forEach(key => { if (!configs.has(key)) configs.set(key, {}) });
    for (const service of services) takeConfigs((await run<StatusAnswer>(["show", "--json"], service)).answer?.services ?? []);
}

function seeToConfigs() {
    const unknown = picture.get().services.filter(service => !configs.has(keyOf(service)));
    const old = Date.now() - configsReadAt > Math.max(configsMs, 20 * configsTookMs);
    if (old || unknown.length > singlyRead) void readAllConfigs();
    else if (unknown.length > 0 && !readingConfigs) void readConfigsOf(unknown);
}

// --- states ------------------------------------------------------------------------------------------------------

const startTimes = new WeakMap<Service, number>();

// When the service's process began, in ms since the epoch; undefined where that is not known.
export function startedAt(service: Service): number | undefined {
    return startTimes.get(service);
}

// The same service with something about it changed.
function renewed(old: Service, service: Service): Service {
    const start = startTimes.get(old);
    if (start !== undefined && service.uptime_ms !== undefined) startTimes.set(service, start);
    return service;
}

// A service that has not changed stays the same object, so that its row is not drawn again. How long it runs changes
// always: it is told from the first answer on.
function merged(old: Service | undefined, fresh: Service): Service {
    const service = withConfig(fresh);
    const bare = (one: Service) => JSON.stringify({ ...one, uptime_ms: one.uptime_ms === undefined ? undefined : 0 });
    if (old && bare(service) === bare(old)) return old;
    if (fresh.uptime_ms !== undefined) startTimes.set(service, Date.now() - fresh.uptime_ms);
    return service;
}

let timer: number | undefined;
let asking = false;
let again = false;
let watch: CockpitProcess | null = null;
let watchedSince = 0;
let watchPauseMs = watchPausesMs[0];
let nextWatchAt = 0;
let canWatch = true; // until tvsc says that it does not know the word

function stopWatching() {
    watch?.close("cancelled");
    watch = null;
}

// A watch that has just begun may have missed a change.
const isSettled = () => Date.now() - watchedSince > 3 * pauseMs;

function startWatching() {
    if (watch || !canWatch || Date.now() < nextWatchAt) return;
    const process = spawn(["watch", "--json"]);
    watch = process;
    watchedSince = Date.now();
    process.stream(() => { if (watch === process) void ask() });
    const ended = (status: number | null) => {
        if (watch !== process) return;
        watch = null;
        if (status === exitUsage) canWatch = false;
        if (isSettled()) {
            watchPauseMs = watchPausesMs[0];
            plan();
            return;
        }
        // The list comes soon as it is: its timer stays, and begins the next one.
        nextWatchAt = Date.now() + watchPauseMs;
        watchPauseMs = Math.min(2 * watchPauseMs, watchPausesMs[1]);
    };
    process.then(() => ended(0), failure => ended(failure.exit_status));
}

// When to ask next.
function plan() {
    window.clearTimeout(timer);
    if (cockpit.hidden) {
        stopWatching();
        return;
    }
    if (!picture.get().failure) startWatching();
    // Progress of a service on its way is no change.
    const told = watch && !picture.get().failure && isSettled();
    const pause = told && !picture.get().services.some(service => kindOf(service) === "pending") ? watchedPauseMs : pauseMs;
    timer = window.setTimeout(ask, again ? 0 : pause);
}

async function ask() {
    again = asking;
    if (asking) return;
    asking = true;
    const askedAt = Date.now();
    const busy = window.setTimeout(() => show({ busySince: askedAt }), busyMs);
    const { answer, words, problem } = await run<StatusAnswer>(["list", "--json", "--brief"]);
    window.clearTimeout(busy);
    if (answer?.daemon?.reachable && answer.daemon.initialized) {
        const before = new Map(picture.get().services.map(service => [keyOf(service), service]));
        const services = answer.services.map(fresh => merged(before.get(keyOf(fresh)), fresh));
        show({ services, loaded: true, daemon: answer.daemon, failure: null, busySince: null });
        seeToConfigs();
    } else show({ daemon: answer?.daemon ?? null, failure: { words, problem }, busySince: null });
    asking = false;
    plan();
}

// To be called when something of ours may have changed states, and the configuration of a service, or of any.
export function askNow(changed?: Named | "all") {
    if (changed === "all") void readAllConfigs();
    else if (changed) void readConfigsOf([changed]);
    void ask();
}

cockpit.addEventListener("visibilitychange", () => {
    if (cockpit.hidden) stopWatching();
    else void ask();
});
void ask(); // before anything is drawn: the answer takes its time
