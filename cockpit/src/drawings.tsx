// SPDX-License-Identifier: MIT
// drawings: what depends on what, and what a start of the daemon took.
import { useCallback, useEffect, useState } from "react";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Title } from "@patternfly/react-core/dist/esm/components/Title";
import { FailureAlert, Loading } from "./parts";
import { Picture } from "./picture";
import { Ended, Service, keyOf, run } from "./tvsc";
import { _ } from "./text";

function Drawing({ words, title, label, services, drawnAnewBy, explanation }: {
    words: string[]; title: string; label: string; services: Service[]; drawnAnewBy: string; explanation: string;
}) {
    const [ended, setEnded] = useState<Ended<unknown> | null>(null);
    const [asked, setAsked] = useState(0);
    const command = words.join(" ");
    const draw = useCallback(() => run(command.split(" ")), [command]);
    useEffect(() => {
        let over = false;
        void draw().then(drawn => { if (!over) setEnded(drawn) });
        return () => { over = true };
    }, [draw, drawnAnewBy, asked]);
    return (
        <>
            <div className="tv-title">
                <Title headingLevel="h1" size="xl">{title}</Title>
                <span className="tv-buttons"><Button variant="secondary" onClick={() => setAsked(asked + 1)}>{_("Draw anew")}</Button></span>
            </div>
            <p className="tv-explanation">{explanation}</p>
            {!ended && <Loading />}
            {ended && ended.status !== 0 && <FailureAlert title={_("It cannot be drawn")} ended={ended} />}
            {ended && ended.status === 0 && <Picture text={ended.output} label={label} services={services} />}
        </>
    );
}

export function GraphView({ services }: { services: Service[] }) {
    // States are in the drawing, and so is what a configuration says.
    const seen = services.map(one => `${keyOf(one)} ${one.state_code} ${one.exit?.win32} ${one.config?.depends_on} ${one.config?.depends_on_groups}`).join("\n");
    return <Drawing words={["graph", "--format", "svg"]} title={_("Dependencies")} label={_("What depends on what")} services={services} drawnAnewBy={seen}
                    explanation={_("An arrow leads from a service to one that it needs. What closes a ring is red; what is needed and not there is dashed.")} />;
}

export function TimelineView({ services }: { services: Service[] }) {
    return <Drawing words={["timeline", "--svg"]} title={_("Start times")} label={_("What a start took")} services={services} drawnAnewBy=""
                    explanation={_("When each service began to start, and when it ran.")} />;
}
