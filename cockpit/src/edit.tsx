// SPDX-License-Identifier: MIT
// edit: creating a service, and changing one. tvsc checks what is entered before anything is written.
import { FormEvent, ReactNode, useState } from "react";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Form, FormGroup } from "@patternfly/react-core/dist/esm/components/Form";
import { FormSelect, FormSelectOption } from "@patternfly/react-core/dist/esm/components/FormSelect";
import { TextArea } from "@patternfly/react-core/dist/esm/components/TextArea";
import { TextInput } from "@patternfly/react-core/dist/esm/components/TextInput";
import { tell } from "./actions";
import { Dialog, FailureAlert, Words } from "./parts";
import { askNow } from "./services";
import { startWord } from "./states";
import { ActionAnswer, Config, Ended, Service, run } from "./tvsc";
import { _, format } from "./text";

type What = "exec" | "program" | "image";

interface Fields {
    name: string;
    display: string;
    what: What;
    command: string;
    start: string;
    depends: string;
    group: string;
    user: string;
    cwd: string;
    environment: string;
    restart: string; // empty: as it is
}

const empty: Fields = { name: "", display: "", what: "exec", command: "", start: "demand", depends: "", group: "", user: "", cwd: "", environment: "", restart: "" };

function fieldsOf(service: Service, config: Config): Fields {
    return {
        ...empty,
        name: service.name,
        display: service.display_name,
        what: config.command !== undefined ? "exec" : "image",
        command: config.command ?? config.image_path,
        start: config.start,
        depends: [...config.depends_on, ...config.depends_on_groups.map(group => `+${group}`)].join(","),
        group: config.group,
        user: config.account,
    };
}

// A value that begins with a dash is no option, and an empty one is one all the same.
const option = (name: string, value: string): string[] => value === "" ? [`--${name}`, ""] : [`--${name}=${value}`];

// What tvsc is to be told: all that is there for a new service, what is different for another.
export function optionsOf(fields: Fields, before: Fields): string[] {
    const words: string[] = [];
    const changed = (key: keyof Fields) => fields[key].trim() !== before[key].trim();
    if (changed("command") || changed("what")) words.push(...option(fields.what, fields.command.trim()));
    for (const [key, name] of [["display", "display"], ["start", "start"], ["depends", "depends"], ["group", "group"], ["user", "user"], ["cwd", "cwd"]] as const) {
        if (changed(key)) words.push(...option(name, key === "depends" ? fields[key].split(",").map(part => part.trim()).filter(part => part).join(",") : fields[key].trim()));
    }
    fields.environment.split("\n").filter(line => line.trim()).forEach(line => words.push(`--env=${line}`));
    if (fields.restart) words.push(`--set=AppRestart=${fields.restart}`);
    return words;
}

function Field({ id, label, help, required, children }: { id: string; label: string; help?: string; required?: boolean; children: ReactNode }) {
    return <FormGroup fieldId={id} label={label} isRequired={required} helperText={help && <span id={`${id}-help`} className="tv-help">{help}</span>}>{children}</FormGroup>;
}

// before: the service to change; null for a new one
export function EditDialog({ service, config, close }: { service: Service | null; config?: Config; close: () => void }) {
    const [before] = useState<Fields>(() => service && config ? fieldsOf(service, config) : empty);
    const [fields, setFields] = useState<Fields>(before);
    const [refusal, setRefusal] = useState<Ended<ActionAnswer> | null>(null);
    const [notes, setNotes] = useState("");
    const [busy, setBusy] = useState(false);
    const set = (key: keyof Fields) => (value: string) => {
        setFields({ ...fields, [key]: value });
        setNotes("");
    };
    const verb = service ? "config" : "create";
    const heading = service ? format(_("Edit $0"), service.name) : _("Create service");
    const options = optionsOf(fields, before);
    const ask = (further: string[]) => run<ActionAnswer>([verb, "--json", ...further, ...options], service ?? { name: fields.name.trim() });

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
                const named = service ?? { name: fields.name.trim() };
                tell(verb, named, done.words === remarks ? { ...done, words: "" } : done);
                askNow(named);
                close();
                if (!service) cockpit.location.go(["service", fields.name.trim()]);
                return;
            }
            setRefusal(done);
        }
        setBusy(false);
    };

    const hosted = fields.what === "exec";
    const commandLabel = { exec: _("Program and arguments"), program: _("Program and arguments"), image: _("Path of the script") }[fields.what];
    return (
        <Dialog variant="medium" title={heading} onClose={close} actions={[
            <Button key="save" variant="primary" type="submit" form="tv-edit" isLoading={busy} isDisabled={busy || (service !== null && options.length === 0)}>
                {notes ? _("Save all the same") : service ? _("Save") : _("Create")}
            </Button>,
            <Button key="close" variant="link" onClick={close}>{_("Cancel")}</Button>,
        ]}>
            <Form id="tv-edit" onSubmit={event => void save(event)}>
                {refusal && <FailureAlert title={_("It was not saved")} ended={refusal} />}
                {notes && <Alert titleHeadingLevel="h2" isInline variant="warning" title={_("Before it is saved")}><Words text={notes} /></Alert>}
                {!service &&
                    <Field id="tv-name" label={_("Name")} required><TextInput id="tv-name" isRequired value={fields.name} onChange={set("name")} autoFocus /></Field>}
                <Field id="tv-display" label={_("Display name")}><TextInput id="tv-display" value={fields.display} onChange={set("display")} /></Field>
                <Field id="tv-what" label={_("What it runs")}>
                    <FormSelect id="tv-what" value={fields.what} onChange={set("what")}>
                        <FormSelectOption value="exec" label={_("Any program")} />
                        {(!service || before.what === "program") && <FormSelectOption value="program" label={_("A program that is a service itself")} />}
                        <FormSelectOption value="image" label={_("A csh script whose last act is exec")} />
                    </FormSelect>
                </Field>
                <Field id="tv-command" label={commandLabel} required help={hosted ? _("By its whole path; quotes hold words with blanks together. There is no shell in between.") : undefined}>
                    <TextInput id="tv-command" isRequired aria-describedby={hosted ? "tv-command-help" : undefined} className="tv-monospace" value={fields.command} onChange={set("command")} />
                </Field>
                <Field id="tv-start" label={_("Start type")}>
                    <FormSelect id="tv-start" value={fields.start} onChange={set("start")}>
                        {["auto", "demand", "disabled", "boot", "system"].map(one => <FormSelectOption key={one} value={one} label={startWord(one)} />)}
                    </FormSelect>
                </Field>
                <Field id="tv-depends" label={_("Depends on")} help={_("Names with commas between them; a group has a + in front.")}>
                    <TextInput id="tv-depends" aria-describedby="tv-depends-help" value={fields.depends} onChange={set("depends")} />
                </Field>
                <Field id="tv-user" label={_("Runs as")} help={_("A user of this machine; without one it is root.")}>
                    <TextInput id="tv-user" aria-describedby="tv-user-help" value={fields.user} onChange={set("user")} />
                </Field>
                <Field id="tv-group" label={_("Load-order group")}><TextInput id="tv-group" value={fields.group} onChange={set("group")} /></Field>
                {fields.what !== "image" && !service &&
                    <Field id="tv-cwd" label={_("Working folder")}><TextInput id="tv-cwd" value={fields.cwd} onChange={set("cwd")} /></Field>}
                {fields.what !== "image" && !service &&
                    <Field id="tv-env" label={_("Environment")} help={_("A line NAME=VALUE for each variable.")}>
                        <TextArea id="tv-env" aria-describedby="tv-env-help" value={fields.environment} onChange={set("environment")} rows={2} />
                    </Field>}
                {hosted &&
                    <Field id="tv-restart" label={_("When the program ends by itself")}>
                        <FormSelect id="tv-restart" value={fields.restart} onChange={set("restart")}>
                            <FormSelectOption value="" label={service ? _("As it is") : _("The service has ended, too")} />
                            <FormSelectOption value="on-failure" label={_("Start it again after a failure")} />
                            <FormSelectOption value="always" label={_("Start it again in any case")} />
                            {service && <FormSelectOption value="never" label={_("The service has ended, too")} />}
                        </FormSelect>
                    </Field>}
            </Form>
        </Dialog>
    );
}
