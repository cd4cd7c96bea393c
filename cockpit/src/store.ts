// SPDX-License-Identifier: MIT
// store: a value of which there is one for the whole page, that the views which use it follow.
import { useSyncExternalStore } from "react";

export interface Store<Value> {
    get(): Value;
    set(next: Value): void;
    use(): Value; // in a view, which is drawn again when the value is another one
}

export function makeStore<Value>(first: Value): Store<Value> {
    let value = first;
    const listeners = new Set<() => void>();
    const subscribe = (listener: () => void) => {
        listeners.add(listener);
        return () => { listeners.delete(listener) };
    };
    const get = () => value;
    return {
        get,
        set: next => {
            value = next;
            listeners.forEach(listener => listener());
        },
        use: () => useSyncExternalStore(subscribe, get),
    };
}
