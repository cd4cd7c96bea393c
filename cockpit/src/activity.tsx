// SPDX-License-Identifier: MIT
// activity: what is being done, and what became of it, above whatever view is open.
import { Alert, AlertActionCloseButton, AlertActionLink } from "@patternfly/react-core/dist/esm/components/Alert";
import { Spinner } from "@patternfly/react-core/dist/esm/components/Spinner";
import { Action, dismiss, endedText, nextSteps, ongoingText, useActions } from "./actions";
import { actAsked } from "./forget";
import { Words, failureText, useNow } from "./parts";
import { usePicture } from "./services";
import { stateWord } from "./states";
import { isSame, pathOf } from "./tvsc";
import { _, duration, format } from "./text";

// How far the service says it is, which is read out when somebody goes there and not each second: its state, and the check point and wait hint that it announces.
function Progress({ action, now }: { action: Action; now: number }) {
    const service = usePicture().services.find(one => isSame(one, action.named));
    const parts = [duration(now - action.startedAt)];
    if (service) parts.push(stateWord(service));
    if (service?.check_point) parts.push(format(_("check point $0"), service.check_point));
    if (service?.wait_hint_ms) parts.push(format(_("says it needs $0"), duration(service.wait_hint_ms)));
    return <span>{parts.join(" · ")}</span>;
}

function OneAction({ action, now }: { action: Action; now: number }) {
    if (!action.ended) {
        return (
            <Alert titleHeadingLevel="h2" isInline className="tv-alert" variant="info" title={ongoingText(action)}
                   customIcon={<Spinner isSVG size="md" aria-label={_("Waiting")} aria-valuetext={_("Waiting")} />}>
                <span aria-live="off"><Progress action={action} now={now} /></span>
            </Alert>
        );
    }
    const good = action.ended.status === 0;
    const steps = nextSteps(action);
    return (
        <Alert titleHeadingLevel="h2" isInline className="tv-alert" variant={good ? "success" : "danger"} title={endedText(action)}
               actionClose={<AlertActionCloseButton title={_("Close")} onClose={() => dismiss(action.id)} />}
               actionLinks={!good && <>
                   {steps.map(step => (
                       <AlertActionLink key={step.label} onClick={() => void actAsked(step.verb, step.named, step.options)}>{step.label}</AlertActionLink>
                   ))}
                   {action.verb !== "delete" &&
                    <AlertActionLink onClick={() => cockpit.location.go(pathOf(action.named))}>{_("Look at the service")}</AlertActionLink>}
               </>}>
            {(action.ended.words || action.ended.problem) && <Words text={failureText(action.ended)} />}
        </Alert>
    );
}

export function Activity() {
    const actions = useActions();
    const now = useNow(actions.some(action => !action.ended));
    return (
        <div role="status" aria-live="polite" aria-atomic="false" className="tv-activity">
            {actions.map(action => <OneAction key={action.id} action={action} now={now} />)}
        </div>
    );
}
