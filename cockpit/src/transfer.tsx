// SPDX-License-Identifier: MIT
// transfer: services as text, to be kept or taken to another machine, and services made of such text.
import { ChangeEvent, useState } from "react";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Card, CardBody, CardTitle } from "@patternfly/react-core/dist/esm/components/Card";
import { Checkbox } from "@patternfly/react-core/dist/esm/components/Checkbox";
import { TextArea } from "@patternfly/react-core/dist/esm/components/TextArea";
import { Title } from "@patternfly/react-core/dist/esm/components/Title";
import { FailureAlert } from "./parts";
import { askNow } from "./services";
import { Ended, run } from "./tvsc";
import { _ } from "./text";

function download(text: string, name: string) {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(new Blob([text], { type: "text/plain" }));
    link.download = name;
    link.click();
    window.setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

function Export() {
    const [ended, setEnded] = useState<Ended<unknown> | null>(null);
    const [busy, setBusy] = useState(false);
    const begin = async () => {
        setBusy(true);
        setEnded(await run(["export"]));
        setBusy(false);
    };
    const done = ended !== null && ended.status === 0;
    return (
        <Card>
            <CardTitle component="h2">{_("Export")}</CardTitle>
            <CardBody className="tv-stack">
                <p>{_("All services with their configuration, as text that can be kept, compared and applied elsewhere.")}</p>
                <span className="tv-buttons">
                    <Button variant="secondary" isLoading={busy} isDisabled={busy} onClick={() => void begin()}>{_("Show")}</Button>
                    {done && <Button variant="secondary" onClick={() => download(ended.output, "services.toml")}>{_("Save as a file")}</Button>}
                </span>
                {ended && !done && <FailureAlert title={_("It cannot be exported")} ended={ended} />}
                {done && <TextArea aria-label={_("The services as text")} className="tv-monospace" readOnly rows={18} value={ended.output} />}
            </CardBody>
        </Card>
    );
}

interface Wanted { text: string; prune: boolean }

function Apply() {
    const [text, setText] = useState("");
    const [prune, setPrune] = useState(false);
    const [planned, setPlanned] = useState<{ wanted: Wanted; ended: Ended<unknown> } | null>(null);
    const [done, setDone] = useState<Ended<unknown> | null>(null);
    const [busy, setBusy] = useState(false);
    const change = (next: string) => {
        setText(next);
        setPlanned(null);
        setDone(null);
    };
    const read = (event: ChangeEvent<HTMLInputElement>) => {
        const file = event.target.files?.[0];
        if (file) void file.text().then(change);
    };
    const tell = async (wanted: Wanted, further: string[]) => {
        setBusy(true);
        const ended = await run(["apply", ...further, ...(wanted.prune ? ["--prune"] : []), "-"], undefined, wanted.text);
        setBusy(false);
        return ended;
    };
    const check = async () => {
        const wanted = { text, prune };
        setDone(null);
        setPlanned({ wanted, ended: await tell(wanted, ["--dry-run"]) });
    };
    const apply = async (wanted: Wanted) => {
        setDone(await tell(wanted, []));
        setPlanned(null);
        askNow("all");
    };
    // A file may still have been on its way when the plan was asked for: only what was planned is shown, and applied.
    const current = planned && planned.wanted.text === text && planned.wanted.prune === prune ? planned : null;
    const plan = current?.ended ?? null;
    return (
        <Card>
            <CardTitle component="h2">{_("Apply")}</CardTitle>
            <CardBody className="tv-stack">
                <p>{_("Services are created and changed until they are what the text says. What would be done is shown first.")}</p>
                <input type="file" aria-label={_("A file with services")} accept=".toml,.reg,text/plain" disabled={busy} onChange={read} />
                <TextArea aria-label={_("Services to apply")} className="tv-monospace" rows={12} value={text} isDisabled={busy} onChange={change} />
                <Checkbox id="tv-prune" label={_("Delete services that the text does not have")} isChecked={prune} isDisabled={busy}
                          onChange={checked => { setPrune(checked); setPlanned(null) }} />
                <span className="tv-buttons">
                    <Button variant="secondary" isDisabled={busy || text.trim() === ""} isLoading={busy} onClick={() => void check()}>{_("Show what would be done")}</Button>
                    <Button variant="primary" isDisabled={busy || plan?.status !== 0} onClick={() => current && void apply(current.wanted)}>{_("Apply")}</Button>
                </span>
                {plan?.status === 0 &&
                    <Alert titleHeadingLevel="h2" isInline variant="info" title={_("This would be done")}><pre className="tv-words">{[plan.output, plan.words].filter(part => part.trim()).join("\n")}</pre></Alert>}
                {done?.status === 0 &&
                    <Alert titleHeadingLevel="h2" isInline variant="success" title={_("This was done")}><pre className="tv-words">{[done.output, done.words].filter(part => part.trim()).join("\n")}</pre></Alert>}
                {[plan, done].map((ended, index) => ended && ended.status !== 0 &&
                    <FailureAlert key={index} title={_("It cannot be applied")} ended={{ words: [ended.output, ended.words].filter(part => part.trim()).join("\n"), problem: ended.problem }} />)}
            </CardBody>
        </Card>
    );
}

export function TransferView() {
    return (
        <>
            <div className="tv-title"><Title headingLevel="h1" size="xl">{_("Export and apply")}</Title></div>
            <div className="tv-cards"><Export /><Apply /></div>
        </>
    );
}
