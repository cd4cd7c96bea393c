// SPDX-License-Identifier: MIT
// edit: creating a service, and changing one. tvsc checks what is entered before anything is written.
import { FormEvent, ReactNode, useEffect, useState } from "react";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Form, FormGroup } from "@patternfly/react-core/dist/esm/components/Form";
import { FormSelect, FormSelectOption } from "@patternfly/react-core/dist/esm/components/FormSelect";
import { TextArea } from "@patternfly/react-core/dist/esm/components/TextArea";
import { TextInput } from "@patternfly/react-core/dist/esm/components/TextInput";
import { tell } from "./actions";
import { Dialog, FailureAlert, Loading, Words } from "./parts";
import { askNow } from "./services";
import { startWord } from "./states";
import { ActionAnswer, Config, Ended, ExportAnswer, Service, ServiceText, StatusAnswer, isHosted, pathOf, run } from "./tvsc";
import { _, format } from "./text";

type What = "exec" | "program" | "image";

interface Fields {
    name: string;
    display: string;
    description: string;
    what: What;
    command: string;
    start: string;
    depends: string;
    group: string;
    user: string;
    cwd: string;
    environment: string; // a line for each variable
    restart: string;
    log: string;
    stdout: string;
    stderr: string;
}

const empty: Fields = {
    name: "", display: "", description: "", what: "exec", command: "", start: "demand", depends: "", group: "", user: "", cwd: "", environment: "",
    restart: "", log: "auto", stdout: "", stderr: "",
};

function fieldsOf(service: Service, config: Config, parameters: NonNullable<ServiceText["parameters"]>): Fields {
    const common = {
        ...empty,
        name: service.name,
        display: service.display_name,
        description: config.description ?? empty.description,
        start: config.start,
        depends: [...config.depends_on, ...config.depends_on_groups.map(group => `+${group}`)].join(","),
        group: config.group,
        user: config.account,
    };
    if (!isHosted(config)) return { ...common, what: "image", command: config.image_path };
    const { AppDirectory: cwd, AppEnvironment: environment, AppRestart: restart, AppLog: log, AppStdout: stdout, AppStderr: stderr } = parameters;
    return {
        ...common,
        command: config.command ?? "",
        cwd: `${cwd ?? empty.cwd}`,
        environment: Array.isArray(environment) ? environment.join("\n") : empty.environment,
        restart: `${restart ?? empty.restart}`,
        log: `${log ?? empty.log}`,
        stdout: `${stdout ?? empty.stdout}`,
        stderr: `${stderr ?? empty.stderr}`,
    };
}

// The fields that hold bytes which are no text: what is shown of them is not all, and would take its place.
function bytesIn(service: Service, config: Config): Set<keyof Fields> {
    const found: [keyof Fields, unknown][] = [
        ["display", service.display_name_bytes], ["description", config.description_bytes], ["depends", config.depends_on_bytes ?? config.depends_on_groups_bytes], ["group", config.group_bytes],
        ["user", config.account_bytes], ["command", isHosted(config) ? config.command_bytes : config.image_path_bytes],
    ];
    return new Set(found.filter(([, bytes]) => bytes !== undefined).map(([key]) => key));
}

interface Read { fields: Fields; kept: Set<keyof Fields> }

// What there is to change now, which need not be what the list has.
async function readFields(service: Service): Promise<Read | Ended<unknown>> {
    const [shown, exported] = await Promise.all([
        run<StatusAnswer>(["show", "--json"], service), run<ExportAnswer>(["export", "--json"], service),
    ]);
    const now = shown.answer?.services[0];
    const config = now?.config;
    const text = exported.answer?.services[0];
    if (!now || !config) return shown;
    return text ? { fields: fieldsOf(service, config, text.parameters ?? {}), kept: bytesIn(now, config) } : exported;
}

// A value that begins with a dash is no option, and an empty one is one all the same.
const option = (name: string, value: string): string[] => value === "" ? [`--${name}`, ""] : [`--${name}=${value}`];

// Only what differs: a variable that is there stays as it is, whatever it holds; one whose line is gone is removed.
function environmentOptions(after: string, before: string): string[] {
    const linesOf = (text: string) => text.split("\n").filter(line => line.trim());
    const nameOf = (line: string) => line.split("=", 1)[0];
    const left = new Set(linesOf(after).map(nameOf));
    const gone = linesOf(before).map(nameOf).filter(name => !left.has(name));
    const present = new Set(linesOf(before));
    const set = linesOf(after).filter(line => !present.has(line));
    return [...set.map(line => `--env=${line}`), ...gone.map(name => `--unset-env=${name}`)];
}

// What tvsc is to be told: all that is there for a new service, what is different for another.
function optionsOf(fields: Fields, before: Fields): string[] {
    const words: string[] = [];
    const changed = (key: keyof Fields) => fields[key].trim() !== before[key].trim();
    if (changed("command") || changed("what")) words.push(...option(fields.what, fields.command.trim()));
    for (const key of ["display", "description", "start", "group", "user"] as const) {
        if (changed(key)) words.push(...option(key, fields[key].trim()));
    }
    if (changed("depends")) words.push(...option("depends", fields.depends.split(",").map(part => part.trim()).filter(part => part).join(",")));
    if (fields.what === "image") return words;
    if (changed("cwd")) words.push(...option("cwd", fields.cwd.trim()));
    words.push(...environmentOptions(fields.environment, before.environment));
    if (fields.what === "program") return words;
    for (const key of ["stdout", "stderr"] as const) {
        if (changed(key)) words.push(...option(key, fields[key].trim()));
    }
    if (changed("restart")) words.push(`--set=AppRestart=${fields.restart}`);
    if (changed("log")) words.push(`--set=AppLog=${fields.log}`);
    return words;
}

function Field({ id, label, help, required, children }: { id: string; label: string; help?: string; required?: boolean; children: ReactNode }) {
    return <FormGroup fieldId={id} label={label} isRequired={required} helperText={help && <span id={`${id}-help`} className="tv-help">{help}</span>}>{children}</FormGroup>;
}

// What is entered. kept: the fields that cannot be; set: what to do when that in a field changes.
function Entries({ fields, kept, isNew, set }: {
    fields: Fields; kept: Set<keyof Fields>; isNew: boolean; set: (key: keyof Fields) => (value: string) => void;
}) {
    const hosted = fields.what === "exec";
    const help = (key: keyof Fields, text: string | undefined) => kept.has(key) ? _("Not all of this is text: it stays as it is, and can be changed with tvsc config.") : text;
    const displayHelp = help("display", undefined);
    const descriptionHelp = help("description", undefined);
    const commandHelp = help("command", hosted ? _("By its whole path; quotes hold words with blanks together. There is no shell in between.") : undefined);
    const groupHelp = help("group", undefined);
    const commandLabel = fields.what === "image" ? _("Path of the script") : _("Program and arguments");
    return (
        <>
            {isNew &&
                <Field id="tv-name" label={_("Name")} required><TextInput id="tv-name" isRequired value={fields.name} onChange={set("name")} autoFocus /></Field>}
            <Field id="tv-display" label={_("Display name")} help={displayHelp}>
                <TextInput id="tv-display" aria-describedby={displayHelp && "tv-display-help"} isDisabled={kept.has("display")} value={fields.display} onChange={set("display")} />
            </Field>
            <Field id="tv-description" label={_("Description")} help={descriptionHelp}>
                <TextArea id="tv-description" aria-describedby={descriptionHelp && "tv-description-help"} isDisabled={kept.has("description")} value={fields.description} onChange={set("description")} rows={2} />
            </Field>
            <Field id="tv-what" label={_("What it runs")}>
                <FormSelect id="tv-what" value={fields.what} isDisabled={kept.has("command")} onChange={set("what")}>
                    <FormSelectOption value="exec" label={_("Any program")} />
                    {isNew && <FormSelectOption value="program" label={_("A program that is a service itself")} />}
                    <FormSelectOption value="image" label={_("A csh script whose last act is exec")} />
                </FormSelect>
            </Field>
            <Field id="tv-command" label={commandLabel} required help={commandHelp}>
                <TextInput id="tv-command" isRequired aria-describedby={commandHelp && "tv-command-help"} className="tv-monospace" isDisabled={kept.has("command")} value={fields.command} onChange={set("command")} />
            </Field>
            <Field id="tv-start" label={_("Start type")}>
                <FormSelect id="tv-start" value={fields.start} onChange={set("start")}>
                    {["auto", "demand", "disabled", "boot", "system"].map(one => <FormSelectOption key={one} value={one} label={startWord(one)} />)}
                </FormSelect>
            </Field>
            <Field id="tv-depends" label={_("Depends on")} help={help("depends", _("Names with commas between them; a group has a + in front."))}>
                <TextInput id="tv-depends" aria-describedby="tv-depends-help" isDisabled={kept.has("depends")} value={fields.depends} onChange={set("depends")} />
            </Field>
            <Field id="tv-user" label={_("Runs as")} help={help("user", _("A user of this machine; without one it is root."))}>
                <TextInput id="tv-user" aria-describedby="tv-user-help" isDisabled={kept.has("user")} value={fields.user} onChange={set("user")} />
            </Field>
            <Field id="tv-group" label={_("Load-order group")} help={groupHelp}>
                <TextInput id="tv-group" aria-describedby={groupHelp && "tv-group-help"} isDisabled={kept.has("group")} value={fields.group} onChange={set("group")} />
            </Field>
            {fields.what !== "image" &&
                <Field id="tv-cwd" label={_("Working folder")}><TextInput id="tv-cwd" value={fields.cwd} onChange={set("cwd")} /></Field>}
            {fields.what !== "image" &&
                <Field id="tv-env" label={_("Environment")} help={_("A line NAME=VALUE for each variable; NAME= takes one away that the daemon gives.")}>
                    <TextArea id="tv-env" aria-describedby="tv-env-help" value={fields.environment} onChange={set("environment")} rows={2} />
                </Field>}
            {hosted &&
                <Field id="tv-restart" label={_("When the program ends by itself")}>
                    <FormSelect id="tv-restart" value={fields.restart} onChange={set("restart")}>
                        <FormSelectOption value="" label={_("As its failure actions say; without any the service has ended, too")} />
                        <FormSelectOption value="never" label={_("The service has ended, too")} />
                        <FormSelectOption value="on-failure" label={_("Start it again after a failure")} />
                        <FormSelectOption value="always" label={_("Start it again in any case")} />
                    </FormSelect>
                </Field>}
            {hosted &&
                <Field id="tv-log-where" label={_("Log")}>
                    <FormSelect id="tv-log-where" value={fields.log} onChange={set("log")}>
                        <FormSelectOption value="auto" label={_("The journal, where there is one, else a file")} />
                        <FormSelectOption value="journal" label={_("The journal")} />
                        <FormSelectOption value="file" label={_("A file")} />
                        <FormSelectOption value="none" label={_("None: what it writes goes where the daemon writes")} />
                    </FormSelect>
                </Field>}
            {hosted &&
                <Field id="tv-stdout" label={_("File for its output")} help={_("Instead of the log.")}>
                    <TextInput id="tv-stdout" aria-describedby="tv-stdout-help" value={fields.stdout} onChange={set("stdout")} />
                </Field>}
            {hosted &&
                <Field id="tv-stderr" label={_("File for its error messages")} help={_("Instead of the log.")}>
                    <TextInput id="tv-stderr" aria-describedby="tv-stderr-help" value={fields.stderr} onChange={set("stderr")} />
                </Field>}
        </>
    );
}

// service: the one to change, null for a new one
export function EditDialog({ service, close }: { service: Service | null; close: () => void }) {
    const [before, setBefore] = useState<Fields>(empty);
    const [fields, setFields] = useState<Fields | null>(service ? null : empty); // null until it is known
    const [kept, setKept] = useState<Set<keyof Fields>>(new Set());
    const [unread, setUnread] = useState<Ended<unknown> | null>(null);
    const [refusal, setRefusal] = useState<Ended<ActionAnswer> | null>(null);
    const [notes, setNotes] = useState("");
    const [busy, setBusy] = useState(false);
    useEffect(() => {
        let over = false;
        if (service) void readFields(service).then(read => {
            if (over) return;
            if ("fields" in read) {
                setBefore(read.fields);
                setFields(read.fields);
                setKept(read.kept);
            } else setUnread(read);
        });
        return () => { over = true };
    }, [service]);

    const verb = service ? "config" : "create";
    const named = service ?? { name: fields?.name.trim() ?? "" };
    const options = fields ? optionsOf(fields, before) : [];
    const ask = (further: string[]) => run<ActionAnswer>([verb, "--json", ...further, ...options], named);

    // tvsc's checks first; what it remarks on is shown, and the second time taken as read.
    const save = async (event?: FormEvent) => {
        event?.preventDefault();
        setBusy(true);
        setRefusal(null);
        const checked = await ask(["--dry-run"]);
        const remarks = checked.status === 0 ? checked.words : "";
        if (checked.status !== 0) setRefusal(checked);
        else if (remarks && remarks !== notes) setNotes(remarks);
        else {
            const done = await ask([]);
            if (done.status === 0) {
                tell(verb, named, done.words === remarks ? { ...done, words: "" } : done);
                askNow(named);
                close();
                if (!service) cockpit.location.go(pathOf(named));
                return;
            }
            setRefusal(done);
        }
        setBusy(false);
    };

    // What tvsc is doing is not undone by a dialog that closes.
    return (
        <Dialog variant="medium" title={service ? format(_("Edit $0"), service.name) : _("Create service")} onClose={() => { if (!busy) close() }} actions={[
            <Button key="save" variant="primary" type="submit" form="tv-edit" isLoading={busy} isDisabled={busy || !fields || (service !== null && options.length === 0)}>
                {notes ? _("Save all the same") : service ? _("Save") : _("Create")}
            </Button>,
            <Button key="close" variant="link" isDisabled={busy} onClick={close}>{_("Cancel")}</Button>,
        ]}>
            {unread && <FailureAlert title={_("Its configuration cannot be read")} ended={unread} />}
            {!fields && !unread && <Loading />}
            {fields &&
                <Form id="tv-edit" onSubmit={event => void save(event)}>
                    {refusal && <FailureAlert title={_("It was not saved")} ended={refusal} />}
                    {notes && <Alert titleHeadingLevel="h2" isInline variant="warning" title={_("Before it is saved")}><Words text={notes} /></Alert>}
                    <Entries fields={fields} kept={kept} isNew={!service} set={key => value => {
                        setFields({ ...fields, [key]: value });
                        setNotes("");
                    }} />
                </Form>}
        </Dialog>
    );
}
