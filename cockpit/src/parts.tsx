// SPDX-License-Identifier: MIT
// parts: what several views are made of.
import { ReactNode, useEffect, useState } from "react";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Label, LabelProps } from "@patternfly/react-core/dist/esm/components/Label";
import { Modal, ModalProps } from "@patternfly/react-core/dist/esm/components/Modal";
import { Spinner } from "@patternfly/react-core/dist/esm/components/Spinner";
import CheckCircleIcon from "@patternfly/react-icons/dist/esm/icons/check-circle-icon";
import ExclamationCircleIcon from "@patternfly/react-icons/dist/esm/icons/exclamation-circle-icon";
import InProgressIcon from "@patternfly/react-icons/dist/esm/icons/in-progress-icon";
import OffIcon from "@patternfly/react-icons/dist/esm/icons/off-icon";
import PauseCircleIcon from "@patternfly/react-icons/dist/esm/icons/pause-circle-icon";
import { Kind, kindOf, stateWord } from "./states";
import { Ended, Named, Service, pathOf } from "./tvsc";
import { _, format } from "./text";

const looks: Record<Kind, { color: LabelProps["color"]; icon: ReactNode }> = {
    running: { color: "green", icon: <CheckCircleIcon /> },
    pending: { color: "blue", icon: <InProgressIcon /> },
    paused: { color: "orange", icon: <PauseCircleIcon /> },
    failed: { color: "red", icon: <ExclamationCircleIcon /> },
    stopped: { color: "grey", icon: <OffIcon /> },
};

export function StateLabel({ service }: { service: Service }) {
    const { color, icon } = looks[kindOf(service)];
    return <Label className="tv-state" color={color} icon={icon} isCompact>{stateWord(service)}</Label>;
}

// What tvsc wrote to standard error, line by line as it has it.
export function Words({ text }: { text: string }) {
    return <pre className="tv-words">{text.replace(/^tvsc: /gm, "")}</pre>;
}

// Why tvsc could not be run, or had nothing to show.
export function failureText(failure: { words: string; problem: string | null }): string {
    switch (failure.problem) {
    case "not-found": return _("tvsc is not installed on this machine. It is in the package tv-tools.");
    case "access-denied": return _("You may not run tvsc on this machine.");
    case "disconnected": return _("The connection to this machine is lost.");
    default: return failure.words;
    }
}

export function FailureAlert({ title, ended, children }: { title: string; ended: Pick<Ended<unknown>, "words" | "problem">; children?: ReactNode }) {
    return (
        <Alert titleHeadingLevel="h2" isInline variant="danger" title={title} className="tv-alert">
            <Words text={failureText(ended)} />
            {children}
        </Alert>
    );
}

export function Loading() {
    return <div className="tv-loading"><Spinner isSVG aria-label={_("Loading")} aria-valuetext={_("Loading")} /></div>;
}

// A link to a service, that Cockpit's own navigation follows.
export function ServiceLink({ service }: { service: Named }) {
    const path = pathOf(service);
    return (
        <Button isInline variant="link" component="a" href={`#${cockpit.location.encode(path)}`}
                onClick={event => { event.preventDefault(); cockpit.location.go(path) }}>
            <span className="tv-name" dir="auto">{service.name}</span>
        </Button>
    );
}

// The time, drawn anew every second while something on the page counts.
export function useNow(counts: boolean): number {
    const [now, setNow] = useState(Date.now());
    useEffect(() => {
        if (!counts) return;
        setNow(Date.now());
        const timer = window.setInterval(() => setNow(Date.now()), 1000);
        return () => window.clearInterval(timer);
    }, [counts]);
    return now;
}

export const exitText = (service: Service): string => {
    const code = service.exit?.win32 ?? 0;
    if (code === 0) return "";
    if (code === 1066) return format(_("The service ended with its own code $0 (1066)"), service.exit?.service_specific ?? 0);
    if (code === 1067) return _("The process ended without a report (1067)");
    return format(_("The service ended with code $0"), code);
};

// A dialog, open as long as it is there. PatternFly hides the page behind it from screen readers, and shows it to them
// again when a dialog is closed, not when it goes away.
export function Dialog({ title, ...others }: Omit<ModalProps, "isOpen" | "ref" | "title" | "aria-label"> & { title: string }) {
    useEffect(() => () => document.getElementById("app")?.removeAttribute("aria-hidden"), []);
    return <Modal isOpen title={title} aria-label={title} {...others} />;
}
