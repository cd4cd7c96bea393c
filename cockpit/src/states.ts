// SPDX-License-Identifier: MIT
// states: what a service's state is called, and how it is shown.
import { Service } from "./tvsc";
import { _, format } from "./text";

// Kinds of states, in the order in which the filter and the count have them.
export const kinds = ["running", "pending", "paused", "failed", "stopped"] as const;
export type Kind = typeof kinds[number];

export function kindOf(service: Service): Kind {
    if (service.process_gone) return "failed";
    switch (service.state) {
    case "running": return "running";
    case "paused": return "paused";
    case "stopped": return (service.exit?.win32 ?? 0) !== 0 ? "failed" : "stopped";
    default: return "pending";
    }
}

export const isActive = (service: Service): boolean => service.state !== "stopped" && !service.process_gone;

export function kindWord(kind: Kind): string {
    switch (kind) {
    case "running": return _("Running");
    case "pending": return _("Changing");
    case "paused": return _("Paused");
    case "failed": return _("Failed");
    case "stopped": return _("Stopped");
    }
}

export function stateWord(service: Service): string {
    if (service.process_gone) return _("Process gone");
    switch (service.state) {
    case "running": return _("Running");
    case "paused": return _("Paused");
    case "start_pending": return _("Starting");
    case "stop_pending": return _("Stopping");
    case "continue_pending": return _("Continuing");
    case "pause_pending": return _("Pausing");
    case "stopped": return kindOf(service) === "failed" ? format(_("Failed ($0)"), service.exit?.win32 ?? 0) : _("Stopped");
    default: return format(_("Unknown ($0)"), service.state_code);
    }
}

export function startWord(start: string): string {
    switch (start) {
    case "auto": return _("Automatic");
    case "demand": return _("On demand");
    case "disabled": return _("Disabled");
    case "boot": return _("Boot");
    case "system": return _("System");
    default: return start;
    }
}
