// SPDX-License-Identifier: MIT
// picture: a drawing that tvsc has made, to be moved about and looked at closely, whose services lead to their views.
//
// Of what comes, only shapes and texts reach the page, in the page's own colours where the drawing has black and white.
import { PointerEvent, useEffect, useLayoutEffect, useMemo, useRef, useState } from "react";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { Service, keyOf, pathOf } from "./tvsc";
import { stateWord } from "./states";
import { _, format } from "./text";

const svgSpace = "http://www.w3.org/2000/svg";
const shapes = new Set(["svg", "g", "path", "polygon", "polyline", "ellipse", "circle", "rect", "line", "text", "tspan", "title"]);
const attributes = new Set(["d", "points", "x", "y", "x1", "y1", "x2", "y2", "cx", "cy", "r", "rx", "ry", "width", "height", "dx", "dy",
    "viewBox", "transform", "fill", "stroke", "stroke-width", "stroke-dasharray", "opacity", "fill-opacity", "text-anchor",
    "font-family", "font-size", "font-weight", "class"]);

// Black, dark grey and white are the page's own; what is written on a coloured ground stays dark.
function colourHere(name: string, value: string, onColour: boolean): string {
    if (name !== "fill" && name !== "stroke") return value;
    if (["white", "#fff", "#ffffff"].includes(value)) return "none";
    return ["black", "#000", "#000000", "#444", "#555"].includes(value) && !onColour ? "currentColor" : value;
}

function copy(from: Element, onColour: boolean): SVGElement | null {
    if (!shapes.has(from.localName)) return null;
    const to = document.createElementNS(svgSpace, from.localName);
    for (const { name, value } of Array.from(from.attributes)) {
        if (attributes.has(name)) to.setAttribute(name, colourHere(name, value, onColour));
    }
    if (from.localName === "text" && !from.hasAttribute("fill")) to.setAttribute("fill", onColour ? "#151515" : "currentColor");
    const children = Array.from(from.childNodes);
    const filled = onColour || (from.classList.contains("node") && children.some(child => child instanceof Element &&
        ["path", "polygon", "rect", "ellipse"].includes(child.localName) && !["none", "transparent", null].includes(child.getAttribute("fill"))));
    for (const child of children) {
        if (child instanceof Element) {
            const copied = child.localName === "title" ? null : copy(child, filled);
            if (copied) to.append(copied);
        } else if (child.nodeType === Node.TEXT_NODE) to.append(child.textContent ?? "");
    }
    return to;
}

// Makes a link of each part that begins with a service's name, itself or in its first text; of none where more than one
// service looks like that.
function linkServices(drawing: SVGElement, services: Service[]) {
    const named = new Map<string, Service | null>();
    services.forEach(service => named.set(service.name, named.has(service.name) ? null : service));
    const parts = [...Array.from(drawing.querySelectorAll("g.node, g.service")),
        ...Array.from(drawing.querySelectorAll("text")).filter(text => !text.closest("g.node, g.service"))];
    for (const part of parts) {
        const text = part.localName === "text" ? part : part.querySelector("text");
        const service = named.get(text?.textContent?.trim() ?? "");
        if (!service) continue;
        part.setAttribute("role", "link");
        part.setAttribute("tabindex", "0");
        part.setAttribute("data-service", service.name);
        part.setAttribute("data-path", cockpit.location.encode(pathOf(service)));
        part.setAttribute("aria-label", format(_("$0, $1"), service.name, stateWord(service)));
    }
}

const steps = [0.1, 0.15, 0.25, 0.35, 0.5, 0.7, 1, 1.4, 2, 2.8, 4, 5.6, 8];
const pixelsAPoint = 96 / 72;

function read(text: string, services: Service[]): { drawing: SVGElement; width: number; height: number } | null {
    const parsed = new DOMParser().parseFromString(text, "image/svg+xml").documentElement;
    const drawing = parsed.localName === "svg" ? copy(parsed, false) : null;
    if (!drawing) return null;
    const [, , width, height] = (parsed.getAttribute("viewBox") ?? "").split(/[\s,]+/).map(Number);
    if (!(width > 0) || !(height > 0)) return null;
    drawing.removeAttribute("width");
    drawing.removeAttribute("height");
    drawing.setAttribute("role", "group");
    linkServices(drawing, services);
    return { drawing, width: width * pixelsAPoint, height: height * pixelsAPoint };
}

export function Picture({ text, label, services }: { text: string; label: string; services: Service[] }) {
    const [zoom, setZoom] = useState(1);
    const box = useRef<HTMLDivElement>(null);
    const zoomed = useRef(false); // by somebody, who wants it to stay so
    const held = useRef<{ x: number; y: number; moved: boolean } | null>(null);
    // What the drawing takes from the services: a list is a new one whenever anything in it changes.
    const names = services.map(service => `${keyOf(service)}/${service.state_code}`).join();
    const picture = useMemo(() => read(text, services), [text, names]);
    const fit = () => {
        zoomed.current = false;
        if (box.current && picture) setZoom(Math.min(1, box.current.clientWidth / picture.width));
    };
    const look = (found: number | undefined) => {
        zoomed.current = true;
        if (found !== undefined) setZoom(found);
    };
    const closer = () => look(steps.find(step => step > zoom * 1.01));
    const farther = () => look([...steps].reverse().find(step => step < zoom * 0.99));
    const wheel = useRef((_event: WheelEvent) => undefined as void);
    wheel.current = event => {
        if (!event.ctrlKey) return;
        event.preventDefault(); // or the browser would zoom the page, too
        if (event.deltaY < 0) closer();
        else farther();
    };

    useLayoutEffect(() => {
        if (!picture) return;
        picture.drawing.style.width = `${picture.width * zoom}px`;
        picture.drawing.style.height = `${picture.height * zoom}px`;
    }, [picture, zoom]);
    // The link that has the focus keeps it in the new drawing.
    useLayoutEffect(() => {
        if (!box.current || !picture) return;
        const focused = box.current.contains(document.activeElement) ? document.activeElement?.getAttribute("data-path") : null;
        picture.drawing.setAttribute("aria-label", label);
        box.current.replaceChildren(picture.drawing);
        const links = Array.from(picture.drawing.querySelectorAll<SVGElement>("[data-path]"));
        if (focused) links.find(link => link.getAttribute("data-path") === focused)?.focus({ preventScroll: true });
    }, [picture, label]);
    useEffect(() => { if (!zoomed.current) fit() }, [text]);
    // React's own listener is a passive one, which cannot keep the browser from anything.
    useEffect(() => {
        const region = box.current;
        const turned = (event: WheelEvent) => wheel.current(event);
        region?.addEventListener("wheel", turned, { passive: false });
        return () => region?.removeEventListener("wheel", turned);
    }, [picture !== null]);

    if (!picture) return <p>{_("There is nothing to draw.")}</p>;
    const follow = (target: EventTarget) => {
        const path = (target as Element).closest("[data-path]")?.getAttribute("data-path");
        if (path) cockpit.location.go(cockpit.location.decode(path));
    };
    const move = (event: PointerEvent) => {
        if (!held.current || !box.current) return;
        const { x, y } = held.current;
        if (Math.abs(event.clientX - x) + Math.abs(event.clientY - y) < 3) return;
        box.current.scrollBy(x - event.clientX, y - event.clientY);
        held.current = { x: event.clientX, y: event.clientY, moved: true };
    };
    return (
        <>
            <div className="tv-zoom" role="group" aria-label={_("Zoom")}>
                <Button variant="secondary" isSmall aria-label={_("Look from farther away")} onClick={farther}>−</Button>
                <span className="tv-zoom-value">{Math.round(zoom * 100)} %</span>
                <Button variant="secondary" isSmall aria-label={_("Look closer")} onClick={closer}>+</Button>
                <Button variant="secondary" isSmall onClick={fit}>{_("Fit the width")}</Button>
            </div>
            <div ref={box} className="tv-picture" tabIndex={0} role="region" aria-label={label}
                 onKeyDown={event => {
                     if (event.key === "Enter") follow(event.target);
                     else if (event.key === "+") closer();
                     else if (event.key === "-") farther();
                     else if (event.key === "0") fit();
                 }}
                 onPointerDown={event => { held.current = { x: event.clientX, y: event.clientY, moved: false } }}
                 onPointerMove={move}
                 onPointerLeave={() => { held.current = null }}
                 onPointerUp={event => {
                     if (held.current && !held.current.moved) follow(event.target);
                     held.current = null;
                 }} />
        </>
    );
}
