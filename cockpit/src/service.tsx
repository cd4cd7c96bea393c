// SPDX-License-Identifier: MIT
// service: one service: what it does now, why, what it runs, what it needs and what needs it.
import { ReactNode, useEffect, useState } from "react";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Breadcrumb, BreadcrumbItem } from "@patternfly/react-core/dist/esm/components/Breadcrumb";
import { Card, CardBody, CardTitle } from "@patternfly/react-core/dist/esm/components/Card";
import { DescriptionList, DescriptionListDescription, DescriptionListGroup, DescriptionListTerm } from "@patternfly/react-core/dist/esm/components/DescriptionList";
import { EmptyState, EmptyStatePrimary } from "@patternfly/react-core/dist/esm/components/EmptyState";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Title } from "@patternfly/react-core/dist/esm/components/Title";
import { ServiceButtons } from "./buttons";
import { Log } from "./log";
import { FailureAlert, Loading, ServiceLink, StateLabel, exitText, useNow } from "./parts";
import { Picture, startedAt } from "./services";
import { startWord, stateWord } from "./states";
import { Config, Ended, Named, Program, RelationAnswer, Service, StatusAnswer, isHosted, isSame, keyOf, run } from "./tvsc";
import { _, duration, format, memorySize, ngettext } from "./text";

const statusMs = 2000;

// The whole configuration, with the command that the list does not have; as the list has it until it is there.
function useConfig(service: Service | undefined): Config | undefined {
    const [config, setConfig] = useState<Config | undefined>(undefined);
    const name = service?.name;
    const bytes = service?.name_bytes;
    const listed = service?.config;
    useEffect(() => {
        let over = false;
        if (name === undefined) return;
        void run<StatusAnswer>(["show", "--json"], { name, name_bytes: bytes }).then(ended => {
            const read = ended.answer?.services[0]?.config;
            if (!over && read) setConfig(read); // or the last one stays
        });
        return () => { over = true };
    }, [name, bytes, listed]);
    return config ?? listed;
}

// What tvhost says of the program that it runs; null for a service of another kind, and before its first start. While the
// daemon is silent it is what was said last.
function useProgram(service: Service | undefined): Program | null {
    const [program, setProgram] = useState<Program | null>(null);
    const name = service?.name;
    const bytes = service?.name_bytes;
    const state = service?.state;
    useEffect(() => {
        let timer: number | undefined;
        let over = false;
        const read = async () => {
            if (name === undefined) return;
            if (!cockpit.hidden) {
                const ended = await run<StatusAnswer>(["status", "--json"], { name, name_bytes: bytes });
                if (over) return;
                const read = ended.answer?.services[0];
                if (read) setProgram(read.program ?? null);
            }
            timer = window.setTimeout(read, statusMs);
        };
        void read();
        return () => { over = true; window.clearTimeout(timer) };
    }, [name, bytes, state]);
    return program;
}

// What is known stays while the daemon is silent, and is asked for again when it answers.
function useRelation(verb: "deps" | "dependents", service: Service | undefined, answers: boolean): Ended<RelationAnswer> | null {
    const [told, setTold] = useState<Ended<RelationAnswer> | null>(null);
    const name = service?.name;
    const bytes = service?.name_bytes;
    const needs = JSON.stringify([service?.config?.depends_on, service?.config?.depends_on_groups]);
    useEffect(() => {
        let over = false;
        if (name === undefined || !answers) return;
        void run<RelationAnswer>([verb, "--json"], { name, name_bytes: bytes }).then(ended => {
            if (!over) setTold(ended);
        });
        return () => { over = true };
    }, [verb, name, bytes, needs, answers]);
    return told;
}

function Fact({ term, children }: { term: string; children: ReactNode }) {
    return (
        <DescriptionListGroup>
            <DescriptionListTerm>{term}</DescriptionListTerm>
            <DescriptionListDescription>{children}</DescriptionListDescription>
        </DescriptionListGroup>
    );
}

function processText(service: Service, program: Program | null): string {
    if (program && program.pid !== 0 && program.processes > 1) return format(_("$0, with $1 processes in all"), program.pid, program.processes);
    if (program && program.pid !== 0) return `${program.pid}`;
    if (service.pid_hint && !service.process_gone) return `${service.pid_hint}`;
    return service.state === "stopped" ? _("none") : _("not known");
}

function Doing({ service, program, since, now }: { service: Service; program: Program | null; since: number | undefined; now: number }) {
    const active = service.state !== "stopped";
    return (
        <DescriptionList isHorizontal isCompact>
            <Fact term={_("State")}><StateLabel service={service} /></Fact>
            {exitText(service) && <Fact term={_("Reason")}>{exitText(service)}</Fact>}
            {program?.reason && <Fact term={_("The program")}>{program.reason}</Fact>}
            {program?.says && <Fact term={_("It says")}>{program.says}</Fact>}
            {(service.check_point ?? 0) > 0 && <Fact term={_("Progress")}>{format(_("check point $0, needs $1 more at most"), service.check_point ?? 0, duration(service.wait_hint_ms ?? 0))}</Fact>}
            <Fact term={_("Process")}>{processText(service, program)}</Fact>
            {active && since !== undefined && <Fact term={_("Runs for")}>{duration(Math.max(0, now - since))}</Fact>}
            {program && <Fact term={_("Restarts")}>{ngettext("$0 time", "$0 times", program.restarts).replace("$0", `${program.restarts}`)}</Fact>}
            {program && program.next_attempt_ms > now && <Fact term={_("Next attempt")}>{format(_("in $0"), duration(program.next_attempt_ms - now))}</Fact>}
            {program && program.memory_bytes > 0 && <Fact term={_("Memory")}>{memorySize(program.memory_bytes)}</Fact>}
            {program && program.pid !== 0 && <Fact term={_("Processor time")}>{duration(program.cpu_ms)}</Fact>}
        </DescriptionList>
    );
}

function typeWord(type: string): string {
    switch (type) {
    case "win32_own_process": return _("own process");
    case "win32_share_process": return _("shared process");
    case "interactive_process": return _("interactive");
    case "kernel_driver": return _("kernel driver");
    case "file_system_driver": return _("file system driver");
    default: return type.replace(/_/g, " ");
    }
}

const kindText = (service: Service): string => (service.type ?? []).map(typeWord).join(", ");

function Configuration({ service }: { service: Service }) {
    const config = service.config;
    if (!config) return <Loading />;
    const needs = [...config.depends_on, ...config.depends_on_groups.map(group => `+${group}`)];
    return (
        <DescriptionList isHorizontal isCompact>
            <Fact term={_("Display name")}><span className="tv-name" dir="auto">{service.display_name}</span></Fact>
            <Fact term={_("Start type")}>{startWord(config.start)}</Fact>
            {config.command && <Fact term={_("Command")}><code className="tv-code">{config.command}</code></Fact>}
            <Fact term={_("Image path")}><code className="tv-code">{config.image_path}</code></Fact>
            <Fact term={_("Runs as")}>{config.account || _("root")}</Fact>
            {config.group && <Fact term={_("Load-order group")}>{config.group}</Fact>}
            {needs.length > 0 && <Fact term={_("Depends on")}>{needs.join(", ")}</Fact>}
            <Fact term={_("Kind")}>{kindText(service)}</Fact>
        </DescriptionList>
    );
}

function Related({ told, live, none }: { told: Ended<RelationAnswer> | null; live: Service[]; none: string }) {
    if (!told) return <Loading />;
    const services = told.answer?.services;
    if (told.status !== 0 || !services) return <FailureAlert title={_("This cannot be read")} ended={told} />;
    if (services.length === 0) return <p>{none}</p>;
    return (
        <ul className="tv-related">
            {services.map(service => (
                <li key={keyOf(service)}><ServiceLink service={service} /> <StateLabel service={live.find(one => isSame(one, service)) ?? service} /></li>
            ))}
        </ul>
    );
}

// Why it does not run, in a sentence, above everything else.
function Why({ service, program }: { service: Service; program: Program | null }) {
    const text = service.process_gone
        ? _("The service's process has ended, and the daemon has not noticed yet. Starting or stopping the service puts that right.")
        : exitText(service);
    if (!text) return null;
    return (
        <Alert titleHeadingLevel="h2" isInline variant="danger" title={stateWord(service)} className="tv-alert">
            <p>{program?.reason ? `${text}: ${program.reason}` : text}.</p>
            {program && program.last_lines.length > 0 && <pre className="tv-words">{program.last_lines.join("\n")}</pre>}
        </Alert>
    );
}

export function ServiceView({ picture, named, edit }: { picture: Picture; named: Named; edit: (service: Service) => void }) {
    const { name } = named;
    const listed = picture.services.find(one => isSame(one, named));
    const config = useConfig(listed);
    const service = listed && { ...listed, config };
    const since = listed && startedAt(listed);
    const program = useProgram(service);
    const needed = useRelation("deps", service, !picture.failure);
    const needing = useRelation("dependents", service, !picture.failure);
    const now = useNow(true);
    const crumbs = (
        <Breadcrumb>
            <BreadcrumbItem to="#/" onClick={event => { event.preventDefault(); cockpit.location.go([]) }}>{_("Services")}</BreadcrumbItem>
            <BreadcrumbItem isActive><span dir="auto">{name}</span></BreadcrumbItem>
        </Breadcrumb>
    );
    if (!service) {
        return (
            <>
                {crumbs}
                {picture.loaded
                    ? <EmptyState>
                        <Title headingLevel="h2" size="lg">{format(_("There is no service $0"), name)}</Title>
                        <EmptyStatePrimary><Button variant="link" onClick={() => cockpit.location.go([])}>{_("Show all services")}</Button></EmptyStatePrimary>
                    </EmptyState>
                    : <Loading />}
            </>
        );
    }
    return (
        <>
            {crumbs}
            <div className="tv-title">
                <Title headingLevel="h1" size="2xl"><span className="tv-name" dir="auto">{service.name}</span></Title>
                <StateLabel service={service} />
                <ServiceButtons service={service} edit={() => edit(service)} />
            </div>
            <Why service={service} program={program} />
            <div className="tv-cards">
                <Card isCompact><CardTitle component="h2">{_("Status")}</CardTitle><CardBody><Doing service={service} program={program} since={since} now={now} /></CardBody></Card>
                <Card isCompact>
                    <CardTitle component="h2">{_("Configuration")}</CardTitle>
                    <CardBody>
                        <Configuration service={service} />
                        <Button variant="secondary" isSmall onClick={() => edit(service)}>{_("Edit")}</Button>
                    </CardBody>
                </Card>
                <Card isCompact><CardTitle component="h2">{_("What it needs")}</CardTitle><CardBody><Related told={needed} live={picture.services} none={_("It needs no other service.")} /></CardBody></Card>
                <Card isCompact><CardTitle component="h2">{_("What needs it")}</CardTitle><CardBody><Related told={needing} live={picture.services} none={_("No other service needs it.")} /></CardBody></Card>
            </div>
            <Log service={service} hosted={isHosted(config)} begun={program !== null} />
        </>
    );
}
