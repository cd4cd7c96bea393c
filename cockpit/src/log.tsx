// SPDX-License-Identifier: MIT
// log: the last lines of what a service has written, and those that come.
import { useEffect, useRef, useState } from "react";
import { Card, CardActions, CardBody, CardHeader, CardTitle } from "@patternfly/react-core/dist/esm/components/Card";
import { Switch } from "@patternfly/react-core/dist/esm/components/Switch";
import { failureText } from "./parts";
import { Named, spawn } from "./tvsc";
import { _ } from "./text";

const linesKept = 500;

const lastLines = (text: string) => text.split("\n").slice(-linesKept - 1).join("\n");

// hosted: by tvhost, which keeps a log; begun: there has been a start, before which there is none.
export function Log({ service, hosted, begun }: { service: Named; hosted: boolean; begun: boolean }) {
    const [text, setText] = useState("");
    const [failure, setFailure] = useState("");
    const [follow, setFollow] = useState(true);
    const box = useRef<HTMLPreElement>(null);
    const { name, name_bytes } = service;

    useEffect(() => setText(""), [name, name_bytes, begun]);

    // What is shown stays until there is something newer: a switch of following alone says nothing of the log.
    useEffect(() => {
        setFailure("");
        if (!hosted || !begun) return;
        let over = false;
        let isFirst = true;
        const process = spawn(["logs", "-n", "200", ...(follow ? ["-f"] : [])], { name, name_bytes });
        process.stream(piece => {
            if (over) return;
            const shownBefore = !isFirst;
            isFirst = false;
            setText(before => lastLines((shownBefore ? before : "") + piece));
        });
        process.then(() => undefined, ended => { if (!over) setFailure(failureText({ words: ended.message, problem: ended.problem })) });
        return () => { over = true; process.close("cancelled") };
    }, [name, name_bytes, follow, hosted, begun]);

    useEffect(() => {
        if (follow && box.current) box.current.scrollTop = box.current.scrollHeight;
    }, [text, follow]);

    return (
        <Card isCompact className="tv-log-card">
            <CardHeader>
                <CardTitle component="h2">{_("Log")}</CardTitle>
                <CardActions>{hosted && <Switch id="tv-follow" label={_("Show new lines as they come")} isChecked={follow} onChange={setFollow} />}</CardActions>
            </CardHeader>
            <CardBody>
                {!hosted && <p>{_("This service is a program of its own kind: it keeps its log itself, and nobody here knows where.")}</p>}
                {failure && <p>{failure}</p>}
                {hosted && (!failure || text) && <pre className="tv-log" ref={box} tabIndex={0} role="log" aria-label={_("Log")}>{text || _("Nothing has been written yet.")}</pre>}
            </CardBody>
        </Card>
    );
}
