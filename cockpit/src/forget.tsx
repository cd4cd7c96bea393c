// SPDX-License-Identifier: MIT
// forget: the question before the daemon forgets a process that may live: it would run on, and a start make a second one.
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Action, act } from "./actions";
import { Dialog } from "./parts";
import { makeStore } from "./store";
import { Named, StatusAnswer, run } from "./tvsc";
import { _, format } from "./text";

interface Question { named: Named; answer: (yes: boolean) => void }

const question = makeStore<Question | null>(null);

// Whether the daemon may forget the service's process: when it is gone now, or a person says so.
export async function mayForget(named: Named): Promise<boolean> {
    const { answer } = await run<StatusAnswer>(["status", "--json"], named);
    if (answer?.services[0]?.process_gone) return true;
    return new Promise(resolve => {
        question.get()?.answer(false);
        question.set({ named, answer: yes => { question.set(null); resolve(yes) } });
    });
}

// As act, with the question where one is due.
export async function actAsked(verb: Action["verb"], named: Named, options: string[] = []): Promise<boolean> {
    if (verb === "reset" && !await mayForget(named)) return false;
    return act(verb, named, options);
}

export function ForgetQuestion() {
    const asked = question.use();
    if (!asked) return null;
    return (
        <Dialog variant="small" title={format(_("Forget the process of $0?"), asked.named.name)} titleIconVariant="warning" onClose={() => asked.answer(false)} actions={[
            <Button key="yes" variant="danger" onClick={() => asked.answer(true)}>{_("Forget it")}</Button>,
            <Button key="no" variant="link" onClick={() => asked.answer(false)}>{_("Cancel")}</Button>,
        ]}>
            {_("As far as can be seen, the process is not gone. It would run on, with nobody to stop it, while the service counts as failed (1067) and can be started a second time.")}
        </Dialog>
    );
}
