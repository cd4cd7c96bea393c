// SPDX-License-Identifier: MIT
// findings: what keeps services from loading and running, and what mends it.
import { useCallback, useEffect, useState } from "react";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Card, CardBody } from "@patternfly/react-core/dist/esm/components/Card";
import { Label } from "@patternfly/react-core/dist/esm/components/Label";
import { Title } from "@patternfly/react-core/dist/esm/components/Title";
import { mayForget } from "./forget";
import { FailureAlert, Loading, ServiceLink } from "./parts";
import { askNow } from "./services";
import { shellWords } from "./shell_words";
import { ActionAnswer, Ended, Finding, FindingsAnswer, Named, Service, isSame, keyOf, run } from "./tvsc";
import { _, format } from "./text";

// Commands that take nothing from anybody: what they change can be changed back, and nothing that runs is ended. A reset is
// asked for where the process is not gone. NAME is one service's.
const safe = ["status --fresh NAME", "reset NAME", "enable NAME", "prepare", "config NAME --start demand", "config NAME --start auto"]
    .map(line => line.split(" "));

// What tvsc is to be told to mend it: the words, and the service apart from them, since its name may look like an option or
// be no text.
export interface Mend { words: string[]; named?: Named }

// Null where a person has to decide or to fill in something.
export function safeMend(finding: Pick<Finding, "command" | "command_bytes" | "name" | "name_bytes">): Mend | null {
    const [program, ...words] = shellWords(finding.command) ?? [];
    const form = safe.find(one => one.length === words.length && one.every((word, i) => word === "NAME" || word === words[i]));
    if (program !== "tvsc" || !form) return null;
    const at = form.indexOf("NAME");
    if (at < 0) return { words };
    const name = words[at].replace(/^--name=/, ""); // which stands before names that begin with a dash
    const known = name === finding.name;
    if (!known && finding.command_bytes !== undefined) return null; // the name of another service, and no text
    return { words: words.filter((_word, i) => i !== at), named: known ? { name: finding.name, name_bytes: finding.name_bytes } : { name } };
}

const levelWord = (level: Finding["level"]) => ({ fail: _("Error"), warn: _("Warning"), info: _("Note") })[level];
const levelColour = { fail: "red", warn: "orange", info: "blue" } as const;

function OneFinding({ finding, services, mended, edit }: { finding: Finding; services: Service[]; mended: () => void; edit: (service: Service) => void }) {
    const [ended, setEnded] = useState<Ended<ActionAnswer> | null>(null);
    const [busy, setBusy] = useState(false);
    const mending = safeMend(finding);
    const service = services.find(one => isSame(one, finding));
    const mend = async () => {
        if (!mending) return;
        const { words, named } = mending;
        setBusy(true);
        const agreed = words[0] !== "reset" || !named || await mayForget(named);
        if (agreed) setEnded(await run<ActionAnswer>([...words, "--json"], named));
        setBusy(false);
        if (!agreed) return;
        askNow("all");
        mended();
    };
    const failed = ended && ended.words !== "" && ended.status !== 0;
    return (
        <Card isCompact component="li">
            <CardBody>
                <div className="tv-finding">
                    <Label color={levelColour[finding.level]} isCompact>{levelWord(finding.level)}</Label>
                    <b>{service ? <ServiceLink service={service} /> : <span className="tv-name" dir="auto">{finding.name}</span>}</b>
                    <span>{finding.found}</span>
                </div>
                {finding.why && <p className="tv-why">{finding.why}</p>}
                {finding.command && <p><code className="tv-code">{finding.command}</code></p>}
                {mending && <Button variant="secondary" isSmall isLoading={busy} isDisabled={busy} onClick={() => void mend()}
                                  aria-label={format(_("Mend it: $0, $1"), finding.name, finding.found)}>{_("Mend it")}</Button>}
                {!mending && service && / \.\.\.$| USER$/.test(finding.command) &&
                    <Button variant="secondary" isSmall onClick={() => edit(service)} aria-label={format(_("Edit $0"), service.name)}>{_("Edit the service")}</Button>}
                {failed && <FailureAlert title={_("It could not be mended")} ended={ended} />}
            </CardBody>
        </Card>
    );
}

export function FindingsView({ services, edit }: { services: Service[]; edit: (service: Service) => void }) {
    const [ended, setEnded] = useState<Ended<FindingsAnswer> | null>(null);
    const [busy, setBusy] = useState(false);
    const check = useCallback(async () => {
        setBusy(true);
        setEnded(await run<FindingsAnswer>(["doctor", "--json"]));
        setBusy(false);
    }, []);
    useEffect(() => { void check() }, [check]);
    const findings = ended?.answer?.findings;
    return (
        <>
            <div className="tv-title">
                <Title headingLevel="h1" size="xl">{_("Findings")}</Title>
                <span className="tv-buttons"><Button variant="secondary" isLoading={busy} isDisabled={busy} onClick={() => void check()}>{_("Check again")}</Button></span>
            </div>
            {!ended && <Loading />}
            {ended && !findings && <FailureAlert title={_("It cannot be checked")} ended={ended} />}
            {findings?.length === 0 && <Alert titleHeadingLevel="h2" isInline variant="success" title={_("Nothing is wrong")} />}
            {findings && findings.length > 0 &&
                <ul className="tv-findings">
                    {findings.map(finding => (
                        <OneFinding key={`${finding.area}/${keyOf(finding)}/${finding.found}`} finding={finding} services={services} mended={() => void check()} edit={edit} />
                    ))}
                </ul>}
        </>
    );
}
