// SPDX-License-Identifier: MIT
// findings: what keeps services from loading and running, and what mends it.
import { useCallback, useEffect, useState } from "react";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Card, CardBody } from "@patternfly/react-core/dist/esm/components/Card";
import { Label } from "@patternfly/react-core/dist/esm/components/Label";
import { Title } from "@patternfly/react-core/dist/esm/components/Title";
import { FailureAlert, Loading, ServiceLink } from "./parts";
import { askNow } from "./services";
import { shellWords } from "./shell_words";
import { ActionAnswer, Ended, Finding, FindingsAnswer, Service, isSame, keyOf, run } from "./tvsc";
import { _, format } from "./text";

// Commands that take nothing from anybody: what they change can be changed back, and nothing that runs is ended.
const safe = [/^status --fresh\0/, /^reset\0/, /^enable\0/, /^prepare$/, /^config\0[^\0]*\0--start\0(demand|auto)$/];

// The words of tvsc's command line that mends it; null where a person has to decide or to fill in something.
export function safeMend(command: string): string[] | null {
    const words = shellWords(command);
    if (!words || words[0] !== "tvsc") return null;
    const rest = words.slice(1);
    const line = rest.join("\0").replace(/^status\0--fresh/, "status --fresh");
    return safe.some(pattern => pattern.test(line)) ? rest : null;
}

const levelWord = (level: Finding["level"]) => ({ fail: _("Error"), warn: _("Warning"), info: _("Note") })[level];
const levelColour = { fail: "red", warn: "orange", info: "blue" } as const;

function OneFinding({ finding, services, mended, edit }: { finding: Finding; services: Service[]; mended: () => void; edit: (service: Service) => void }) {
    const [ended, setEnded] = useState<Ended<ActionAnswer> | null>(null);
    const [busy, setBusy] = useState(false);
    const words = safeMend(finding.command);
    const service = services.find(one => isSame(one, finding));
    const mend = async () => {
        if (!words) return;
        setBusy(true);
        setEnded(await run<ActionAnswer>([...words, "--json"]));
        setBusy(false);
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
                {words && <Button variant="secondary" isSmall isLoading={busy} isDisabled={busy} onClick={() => void mend()}
                                  aria-label={format(_("Mend it: $0, $1"), finding.name, finding.found)}>{_("Mend it")}</Button>}
                {!words && service && / \.\.\.$| USER$/.test(finding.command) &&
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
