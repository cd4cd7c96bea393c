// SPDX-License-Identifier: MIT
// buttons: what can be done with a service, and the question before several services are started or stopped.
import { useId, useState } from "react";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Dropdown, DropdownItem, KebabToggle } from "@patternfly/react-core/dist/esm/components/Dropdown";
import { Action, Verb, act, useActions, verbWord } from "./actions";
import { actAsked } from "./forget";
import { Dialog } from "./parts";
import { isActive } from "./states";
import { PlanAnswer, Service, isHosted, isMasked, isSame, run } from "./tvsc";
import { _, format } from "./text";

// What a service takes now; the first is the one to offer most prominently.
export function verbsFor(service: Service): Verb[] {
    if (!isActive(service)) return ["start"];
    const verbs: Verb[] = ["stop", "restart"];
    if (service.state === "paused") verbs.push("continue");
    else if (service.accepts.includes("pause_continue")) verbs.push("pause");
    if (isHosted(service.config) && service.state === "running") verbs.push("reload");
    return verbs;
}

// Only these go through other services.
const includes: Partial<Record<Verb, string>> = { start: "--with-deps", stop: "--with-dependents", restart: "--with-dependents" };

interface Question { verb: Verb; service: Service; plan: PlanAnswer }

function title({ verb, service }: Question): string {
    switch (verb) {
    case "start": return format(_("Start $0 and what it needs?"), service.name);
    case "stop": return format(_("Stop $0 and what depends on it?"), service.name);
    default: return format(_("Restart $0 and what depends on it?"), service.name);
    }
}

function stepText(action: string, name: string): string {
    return action === "stop" ? format(_("Stop $0"), name) : format(_("Start $0"), name);
}

function QuestionDialog({ question, close }: { question: Question; close: () => void }) {
    const { verb, service, plan } = question;
    const go = (options: string[]) => {
        close();
        void act(verb, service, options);
    };
    return (
        <Dialog variant="small" title={title(question)} onClose={close} actions={[
            <Button key="all" variant="primary" onClick={() => go([includes[verb] as string])}>{_("All of these")}</Button>,
            <Button key="one" variant="secondary" onClick={() => go(verb === "start" ? [] : ["--force"])}>{_("Only this one")}</Button>,
            <Button key="none" variant="link" onClick={close}>{_("Cancel")}</Button>,
        ]}>
            <ol className="tv-steps">
                {plan.steps.map((step, index) => (
                    <li key={index}><b dir="auto">{stepText(step.action, step.name)}</b>{step.why && <span className="tv-why"> {step.why}</span>}</li>
                ))}
            </ol>
        </Dialog>
    );
}

function DeleteDialog({ service, close }: { service: Service; close: () => void }) {
    const go = async () => {
        close();
        if (await act("delete", service, isActive(service) ? ["--stop"] : [])) cockpit.location.go([]);
    };
    const heading = format(_("Delete $0?"), service.name);
    return (
        <Dialog variant="small" title={heading} titleIconVariant="warning" onClose={close} actions={[
            <Button key="yes" variant="danger" onClick={() => void go()}>{_("Delete")}</Button>,
            <Button key="no" variant="link" onClick={close}>{_("Cancel")}</Button>,
        ]}>
            {isActive(service) ? _("It runs, and is stopped first. Its configuration is removed for good.") : _("Its configuration is removed for good.")}
        </Dialog>
    );
}

const isBusy = (actions: Action[], service: Service) => actions.some(action => !action.ended && isSame(action.named, service));

export function ServiceButtons({ service, edit, compact }: { service: Service; edit?: () => void; compact?: boolean }) {
    const [question, setQuestion] = useState<Question | null>(null);
    const [open, setOpen] = useState(false);
    const [deleting, setDeleting] = useState(false);
    const [planning, setPlanning] = useState(false);
    const menuId = useId();
    const actions = useActions();
    const busy = planning || isBusy(actions, service);

    const click = async (verb: Verb) => {
        if (!(verb in includes)) {
            void act(verb, service);
            return;
        }
        setPlanning(true);
        const planned = await run<PlanAnswer>(["plan", verb, "--json"], service);
        setPlanning(false);
        const others = planned.answer?.steps?.some(step => !isSame(step, service)) ?? false;
        if (others && planned.answer) setQuestion({ verb, service, plan: planned.answer });
        else void act(verb, service); // with no plan to be had, it says why
    };

    const verbs = verbsFor(service);
    const shown = compact ? verbs.slice(0, 1) : verbs;
    // The focus stays where the menu was opened, or comes back there from a dialog.
    const item = (key: string, label: string, chosen: () => void) => (
        <DropdownItem key={key} component="button" isDisabled={busy} onClick={() => {
            setOpen(false);
            document.getElementById(menuId)?.focus();
            chosen();
        }}>{label}</DropdownItem>
    );
    const items = [
        ...verbs.slice(shown.length).map(verb => item(verb, verbWord(verb), () => void click(verb))),
        ...(isActive(service) || service.process_gone ? [item("reset", _("Forget its process"), () => void actAsked("reset", service))] : []),
        service.config?.start === "disabled" ? item("enable", _("Enable"), () => void act("enable", service)) : item("disable", _("Disable"), () => void act("disable", service)),
        ...(isMasked(service.config) ? [item("unmask", _("Unmask"), () => void act("unmask", service))] : []),
        ...(edit ? [item("edit", _("Edit"), edit)] : []),
        item("delete", _("Delete"), () => setDeleting(true)),
    ];
    return (
        <span className="tv-buttons">
            {shown.map((verb, index) => ( // the same button whatever it offers, and one that can be held: it keeps the focus
                <Button key={index} variant={!compact && verb === "start" ? "primary" : "secondary"} isSmall={compact} isAriaDisabled={busy}
                        aria-label={compact ? format(_("$0 $1"), verbWord(verb), service.name) : undefined}
                        onClick={() => void click(verb)}>{verbWord(verb)}</Button>
            ))}
            <Dropdown isPlain position="right" isOpen={open} dropdownItems={items}
                      toggle={<KebabToggle id={menuId} aria-label={format(_("More for $0"), service.name)} onToggle={setOpen} />} />
            {question && <QuestionDialog question={question} close={() => setQuestion(null)} />}
            {deleting && <DeleteDialog service={service} close={() => setDeleting(false)} />}
        </span>
    );
}
