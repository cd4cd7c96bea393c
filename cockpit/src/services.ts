// SPDX-License-Identifier: MIT
// services: the live list, one for the whole page.
//
//   state      event                      next state
//   ---------  -------------------------  ----------
//   asking     the first list is there    reading configurations, then watching
//   watching   tvsc watch tells a change  asking for states, one call for all services
//   watching   a new name, or own change  reading configurations, which takes three calls a service
//   any        the daemon is silent       the last picture stays, with the reason; asked again every second
//   any        the page is hidden         nothing is asked until it is seen again
//
// tvsc watch looks once a second, and says a line for each change: nothing is sent while nothing happens. The list is
// asked for all the same now and then, since no line tells of the lock; and every second where tvsc has no watch.
import { useSyncExternalStore } from "react";
import { kindOf } from "./states";
import { Daemon, Service, StatusAnswer, run, spawn } from "./tvsc";

export interface Picture {
    services: Service[];
    loaded: boolean;        // there was a list
    daemon: Daemon | null;
    failure: { words: string; problem: string | null } | null; // why there is no newer list
    busySince: number | null; // when a list was asked for that has not come in time; ms since the epoch
}

const pauseMs = 1000;      // between two lists where no watch runs
const watchedPauseMs = 10000;
const busyMs = 2500;
const exitUsage = 2;
const configsMs = 60000; // somebody else may change a configuration, which no state tells

let picture: Picture = { services: [], loaded: false, daemon: null, failure: null, busySince: null };
const listeners = new Set<() => void>();
let configsReadAt = 0;
let timer: number | undefined;
let asking = false;
let again = false;
let watch: CockpitProcess | null = null;
let watchedSince = 0;
let canWatch = true; // until tvsc says that it does not know the word

function show(change: Partial<Picture>) {
    picture = { ...picture, ...change };
    listeners.forEach(listener => listener());
}

// A service that has not changed stays the same object, so that its row is not drawn again. How long it runs changes
// always: it is told from the first answer on.
function merged(before: Map<string, Service>, fresh: Service): Service {
    const old = before.get(fresh.name);
    const whole: Service = { ...fresh, type: fresh.type ?? old?.type, config: fresh.config ?? old?.config };
    if (!old) return whole;
    const bare = (service: Service) => JSON.stringify({ ...service, uptime_ms: service.uptime_ms === undefined ? undefined : 0, startedAt: 0 });
    return bare(whole) === bare(old) ? old : whole;
}

const startTimes = new WeakMap<Service, number>();

// When the service's process began, in ms since the epoch; undefined where that is not known.
export function startedAt(service: Service): number | undefined {
    return startTimes.get(service);
}

function take(answer: StatusAnswer, withConfigs: boolean) {
    const before = new Map(picture.services.map(service => [service.name, service]));
    const services = answer.services.map(fresh => {
        const service = merged(before, fresh);
        if (fresh.uptime_ms !== undefined && !startTimes.has(service)) startTimes.set(service, Date.now() - fresh.uptime_ms);
        return service;
    });
    if (withConfigs) configsReadAt = Date.now();
    show({ services, loaded: true, daemon: answer.daemon, failure: null, busySince: null });
}

function stopWatching() {
    watch?.close("cancelled");
    watch = null;
}

function startWatching() {
    if (watch || !canWatch) return;
    const process = spawn(["watch", "--json"]);
    watch = process;
    watchedSince = Date.now();
    process.stream(() => { if (watch === process) void ask() });
    const ended = (status: number | null) => {
        if (watch !== process) return;
        watch = null;
        if (status === exitUsage) canWatch = false;
        void ask();
    };
    process.then(() => ended(0), failure => ended(failure.exit_status));
}

async function ask() {
    if (asking) {
        again = true;
        return;
    }
    asking = true;
    again = false;
    window.clearTimeout(timer);
    const unknown = picture.services.some(service => !service.config);
    const withConfigs = picture.loaded && (unknown ? Date.now() - configsReadAt > 5000 : Date.now() - configsReadAt > configsMs);
    const askedAt = Date.now();
    const busy = window.setTimeout(() => show({ busySince: askedAt }), busyMs);
    const ended = await run<StatusAnswer>(["list", "--json", ...(withConfigs ? [] : ["--brief"])]);
    window.clearTimeout(busy);
    if (ended.answer?.daemon?.reachable && ended.answer.daemon.initialized) take(ended.answer, withConfigs);
    else show({ daemon: ended.answer?.daemon ?? null, failure: { words: ended.words, problem: ended.problem }, busySince: null });
    asking = false;
    const unread = picture.loaded && configsReadAt === 0;
    if (cockpit.hidden || listeners.size === 0) {
        stopWatching();
        return;
    }
    if (!picture.failure) startWatching();
    // A watch that has just begun may have missed a change, and progress of a service on its way is none.
    const told = watch && !picture.failure && Date.now() - watchedSince > 3 * pauseMs;
    const pause = told && !picture.services.some(service => kindOf(service) === "pending") ? watchedPauseMs : pauseMs;
    timer = window.setTimeout(ask, again || unread ? 0 : pause);
}

// To be called when something of ours may have changed a service, or its configuration.
export function askNow(configsToo = false) {
    if (configsToo) configsReadAt = 0;
    void ask();
}

function subscribe(listener: () => void) {
    listeners.add(listener);
    if (listeners.size === 1) void ask();
    return () => { listeners.delete(listener) };
}

cockpit.addEventListener("visibilitychange", () => {
    if (cockpit.hidden) stopWatching();
    else void ask();
});

export function usePicture(): Picture {
    return useSyncExternalStore(subscribe, () => picture);
}
