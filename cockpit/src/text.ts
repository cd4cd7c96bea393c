// SPDX-License-Identifier: MIT
// text: what is said to people, in Cockpit's language.

export const _ = (text: string) => cockpit.gettext(text);
export const ngettext = (one: string, many: string, count: number) => cockpit.ngettext(one, many, count);
export const format = (text: string, ...values: (string | number)[]) => cockpit.format(text, ...values);

// A length of time in its two largest units; milliseconds come in.
export function duration(ms: number): string {
    const seconds = Math.floor(ms / 1000);
    const minutes = Math.floor(seconds / 60);
    const hours = Math.floor(minutes / 60);
    const days = Math.floor(hours / 24);
    if (days > 0) return format(_("$0 d $1 h"), days, hours % 24);
    if (hours > 0) return format(_("$0 h $1 min"), hours, minutes % 60);
    if (minutes > 0) return format(_("$0 min $1 s"), minutes, seconds % 60);
    return format(_("$0 s"), seconds);
}

export function memorySize(bytes: number): string {
    const units = ["B", "KiB", "MiB", "GiB", "TiB"];
    let value = bytes;
    let unit = 0;
    for (; value >= 1024 && unit < units.length - 1; ++unit) value /= 1024;
    return `${value.toLocaleString(cockpit.language.replace("_", "-"), { maximumFractionDigits: 1 })} ${units[unit]}`;
}
