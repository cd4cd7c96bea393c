// SPDX-License-Identifier: MIT
// app: the page: which view is open, and what holds for all of them.
import "@patternfly/react-core/dist/styles/base.css"; // before what refines it
import { useEffect, useState } from "react";
import { createRoot } from "react-dom/client";
import { Alert } from "@patternfly/react-core/dist/esm/components/Alert";
import { Nav, NavItem, NavList } from "@patternfly/react-core/dist/esm/components/Nav";
import { Page, PageSection } from "@patternfly/react-core/dist/esm/components/Page";
import { Activity } from "./activity";
import { followColourScheme } from "./colours";
import { GraphView, TimelineView } from "./drawings";
import { EditDialog } from "./edit";
import { FindingsView } from "./findings";
import { ForgetQuestion } from "./forget";
import { ServiceList } from "./list";
import { FailureAlert, Loading, useNow } from "./parts";
import { ServiceView } from "./service";
import { Picture, usePicture } from "./services";
import { TransferView } from "./transfer";
import { Service, keyOf, namedIn } from "./tvsc";
import { _, duration, format } from "./text";
import "./page.css";

function usePath(): string[] {
    const [path, setPath] = useState(cockpit.location.path);
    useEffect(() => {
        const moved = () => setPath(cockpit.location.path);
        cockpit.addEventListener("locationchanged", moved);
        return () => cockpit.removeEventListener("locationchanged", moved);
    }, []);
    return path;
}

// Null as long as it is not known.
function useAdministrator(): boolean | null {
    const [allowed, setAllowed] = useState<boolean | null>(null);
    useEffect(() => {
        const permission = cockpit.permission({ admin: true });
        const changed = () => setAllowed(permission.allowed);
        permission.addEventListener("changed", changed);
        changed();
    }, []);
    return allowed;
}

// What keeps the list from being new, or anything from being changed.
function Warnings({ picture, administrator }: { picture: Picture; administrator: boolean | null }) {
    const now = useNow(picture.busySince !== null);
    return (
        <div aria-live="polite" aria-atomic="false">
            {picture.failure && <FailureAlert title={_("The services cannot be read")} ended={picture.failure}>
                {picture.loaded && <p>{_("What is shown below was so before. The page asks again every second.")}</p>}
            </FailureAlert>}
            {picture.busySince !== null && !picture.failure &&
                <Alert titleHeadingLevel="h2" isInline variant="info" className="tv-alert"
                       title={<span aria-live="off">{format(_("The daemon has been busy for $0"), duration(now - picture.busySince))}</span>}>
                    {_("It serves one request at a time, and a start may take it three quarters of a minute.")}
                </Alert>}
            {picture.daemon?.locked &&
                <Alert titleHeadingLevel="h2" isInline variant="warning" className="tv-alert" title={_("Somebody has locked the services: none can be started")} />}
            {administrator === false &&
                <Alert titleHeadingLevel="h2" isInline variant="info" className="tv-alert" title={_("Limited access")}>
                    {_("Changing services may need administrative access. Turn it on at the top of the window.")}
                </Alert>}
        </div>
    );
}

interface Tab { path: string; label: string }
const tabs = (): Tab[] => [
    { path: "", label: _("Services") },
    { path: "graph", label: _("Dependencies") },
    { path: "timeline", label: _("Start times") },
    { path: "findings", label: _("Findings") },
    { path: "transfer", label: _("Export and apply") },
];

function App() {
    const picture = usePicture();
    const path = usePath();
    const administrator = useAdministrator();
    const [open] = path;
    const [editing, setEditing] = useState<{ service: Service | null } | null>(null); // null in it: a new one
    const edit = (service: Service) => setEditing({ service });
    useEffect(() => {
        if (picture.loaded) performance.mark("tv-first-list"); // for who measures
    }, [picture.loaded]);
    const tab = open === "service" || open === undefined ? "" : open;
    return (
        <Page mainAriaLabel={_("Win32 services")}>
            <PageSection type="nav" hasShadowBottom>
                <Nav variant="tertiary" aria-label={_("Views")}>
                    <NavList>
                        {tabs().map(one => (
                            <NavItem key={one.path} isActive={tab === one.path} to={`#/${one.path}`} preventDefault
                                     onClick={() => cockpit.location.go(one.path ? [one.path] : [])}>{one.label}</NavItem>
                        ))}
                    </NavList>
                </Nav>
            </PageSection>
            <PageSection isFilled>
                <Warnings picture={picture} administrator={administrator} />
                <Activity />
                {!picture.loaded && !picture.failure && <Loading />}
                {picture.loaded && tab === "" && open !== "service" && <ServiceList picture={picture} create={() => setEditing({ service: null })} />}
                {open === "service" && <ServiceView key={keyOf(namedIn(path))} picture={picture} named={namedIn(path)} edit={edit} />}
                {open === "graph" && <GraphView services={picture.services} />}
                {open === "timeline" && <TimelineView services={picture.services} />}
                {open === "findings" && <FindingsView services={picture.services} edit={edit} />}
                {open === "transfer" && <TransferView />}
                <ForgetQuestion />
                {editing && <EditDialog service={editing.service} close={() => setEditing(null)} />}
            </PageSection>
        </Page>
    );
}

document.addEventListener("DOMContentLoaded", () => {
    cockpit.translate();
    document.documentElement.lang = cockpit.language.replace("_", "-");
    followColourScheme();
    createRoot(document.getElementById("app") as HTMLElement).render(<App />);
});
