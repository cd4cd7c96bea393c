// SPDX-License-Identifier: MIT
// list: all services, with filters and search, a page at a time.
import { memo, useMemo, useState } from "react";
import { Button } from "@patternfly/react-core/dist/esm/components/Button";
import { EmptyState, EmptyStateBody, EmptyStateIcon, EmptyStatePrimary } from "@patternfly/react-core/dist/esm/components/EmptyState";
import { FormSelect, FormSelectOption } from "@patternfly/react-core/dist/esm/components/FormSelect";
import { Pagination } from "@patternfly/react-core/dist/esm/components/Pagination";
import { SearchInput } from "@patternfly/react-core/dist/esm/components/SearchInput";
import { Title } from "@patternfly/react-core/dist/esm/components/Title";
import { ToggleGroup, ToggleGroupItem } from "@patternfly/react-core/dist/esm/components/ToggleGroup";
import SearchIcon from "@patternfly/react-icons/dist/esm/icons/search-icon";
import "@patternfly/react-styles/css/components/Table/table.css";
import { ServiceButtons } from "./buttons";
import { Loading, ServiceLink, StateLabel, useNow } from "./parts";
import { Picture, startedAt } from "./services";
import { Kind, kindOf, kindWord, kinds, startWord } from "./states";
import { Service, keyOf } from "./tvsc";
import { _, duration, format } from "./text";

type Column = "name" | "display" | "state" | "start";

const columnText = (column: Column) => ({ name: _("Name"), display: _("Display name"), state: _("State"), start: _("Start type") })[column];

const sortValue = (service: Service, column: Column): string => {
    switch (column) {
    case "name": return service.name;
    case "display": return service.display_name;
    case "state": return `${kinds.indexOf(kindOf(service))}`;
    case "start": return service.config?.start ?? "";
    }
};

const matches = (service: Service, search: string) =>
    [service.name, service.display_name, service.config?.group ?? ""].some(text => text.toLowerCase().includes(search));

const Row = memo(function Row({ service, uptime }: { service: Service; uptime: string }) {
    return (
        <tr className="tv-row" data-service={service.name}>
            <th scope="row" data-label={columnText("name")}><ServiceLink service={service} /></th>
            <td data-label={columnText("display")}><span className="tv-name" dir="auto">{service.display_name}</span></td>
            <td data-label={columnText("state")}><StateLabel service={service} /> <span className="tv-uptime">{uptime}</span></td>
            <td data-label={columnText("start")}>{service.config ? startWord(service.config.start) : ""}</td>
            <td className="tv-row-buttons"><ServiceButtons service={service} compact /></td>
        </tr>
    );
});

function Heading({ column, sort, setSort }: { column: Column; sort: { column: Column; down: boolean }; setSort: (column: Column) => void }) {
    const sorted = sort.column === column;
    return (
        <th scope="col" aria-sort={sorted ? (sort.down ? "descending" : "ascending") : "none"}>
            <button type="button" className="tv-sort" onClick={() => setSort(column)}>
                {columnText(column)}<span aria-hidden="true">{sorted ? (sort.down ? " ▾" : " ▴") : ""}</span>
            </button>
        </th>
    );
}

export function ServiceList({ picture, create }: { picture: Picture; create: () => void }) {
    const [search, setSearch] = useState("");
    const [kind, setKind] = useState<Kind | "">("");
    const [start, setStart] = useState("");
    const [sort, setSort] = useState<{ column: Column; down: boolean }>({ column: "name", down: false });
    const [page, setPage] = useState(1);
    const [perPage, setPerPage] = useState(50);
    const now = useNow(true);

    const counts = useMemo(() => {
        const found = Object.fromEntries(kinds.map(one => [one, 0])) as Record<Kind, number>;
        picture.services.forEach(service => ++found[kindOf(service)]);
        return found;
    }, [picture.services]);
    const chosen = useMemo(() => {
        const wanted = search.trim().toLowerCase();
        const collator = new Intl.Collator(cockpit.language.replace("_", "-"), { numeric: true });
        const found = picture.services.filter(service => (!kind || kindOf(service) === kind) &&
            (!start || service.config?.start === start) && (!wanted || matches(service, wanted)));
        found.sort((a, b) => collator.compare(sortValue(a, sort.column), sortValue(b, sort.column)) || collator.compare(a.name, b.name));
        return sort.down ? found.reverse() : found;
    }, [picture.services, search, kind, start, sort]);

    const pages = Math.max(1, Math.ceil(chosen.length / perPage));
    const shownPage = Math.min(page, pages);
    const shown = chosen.slice((shownPage - 1) * perPage, shownPage * perPage);
    const unknown = shown.length === 0 && !picture.configured && (start !== "" || search.trim() !== ""); // groups are searched, too
    const sortBy = (column: Column) => setSort({ column, down: sort.column === column && !sort.down });
    const uptime = (service: Service) => {
        const since = startedAt(service);
        return since !== undefined && kindOf(service) !== "failed" ? duration(Math.max(0, now - since)) : "";
    };
    const pagination = (variant: "top" | "bottom") => chosen.length > 20 && (
        <Pagination itemCount={chosen.length} page={shownPage} perPage={perPage} variant={variant} isCompact={variant === "top"}
                    widgetId={`tv-pages-${variant}`}
                    onSetPage={(_event, next) => setPage(next)} onPerPageSelect={(_event, next) => { setPerPage(next); setPage(1) }}
                    titles={{ paginationTitle: variant === "top" ? _("Pages of services") : _("Pages of services, below"), toFirstPage: _("First page"), toLastPage: _("Last page"), toNextPage: _("Next page"), toPreviousPage: _("Previous page"), currPage: _("Current page"), itemsPerPage: _("Services a page"), perPageSuffix: _("a page"), ofWord: _("of"), optionsToggle: _("Services a page") }} />
    );
    const noFilter = () => { setSearch(""); setKind(""); setStart("") };

    return (
        <>
            <h1 className="pf-u-screen-reader">{_("Win32 services")}</h1>
            <div className="tv-toolbar">
                <div><SearchInput aria-label={_("Search services")} placeholder={_("Search")} value={search} resetButtonLabel={_("Clear the search")}
                                          onChange={(_event, text) => { setSearch(text); setPage(1) }} onClear={() => setSearch("")} /></div>
                <div>
                    <ToggleGroup aria-label={_("Show services by state")} className="tv-kinds">
                        {["" as const, ...kinds].map(one => (
                            <ToggleGroupItem key={one} buttonId={`tv-kind-${one || "all"}`} isSelected={kind === one}
                                             text={one ? `${kindWord(one)} ${counts[one]}` : format(_("All $0"), picture.services.length)}
                                             onChange={() => { setKind(one); setPage(1) }} />
                        ))}
                    </ToggleGroup>
                </div>
                <div>
                    <FormSelect aria-label={_("Show services by start type")} value={start} onChange={value => { setStart(value); setPage(1) }}>
                        <FormSelectOption value="" label={_("Any start type")} />
                        {["auto", "demand", "disabled", "boot", "system"].map(one => <FormSelectOption key={one} value={one} label={startWord(one)} />)}
                    </FormSelect>
                </div>
                <div className="tv-toolbar-end"><Button variant="primary" onClick={create}>{_("Create service")}</Button></div>
                <div className="tv-pages">{pagination("top")}</div>
            </div>
            {shown.length > 0 &&
                <table className="pf-c-table pf-m-compact tv-table" aria-label={_("Services")}>
                    <thead><tr>
                        {(["name", "display", "state", "start"] as const).map(column => <Heading key={column} column={column} sort={sort} setSort={sortBy} />)}
                        <td />
                    </tr></thead>
                    <tbody>{shown.map(service => <Row key={keyOf(service)} service={service} uptime={uptime(service)} />)}</tbody>
                </table>}
            {unknown && <Loading />}
            {shown.length === 0 && picture.services.length > 0 && !unknown &&
                <EmptyState>
                    <EmptyStateIcon icon={SearchIcon} />
                    <Title headingLevel="h2" size="lg">{_("No service matches")}</Title>
                    <EmptyStatePrimary><Button variant="link" onClick={noFilter}>{_("Show all services")}</Button></EmptyStatePrimary>
                </EmptyState>}
            {picture.loaded && picture.services.length === 0 &&
                <EmptyState>
                    <Title headingLevel="h2" size="lg">{_("There are no services yet")}</Title>
                    <EmptyStateBody>{_("A service is a program that runs in the background, started with the machine or when somebody asks for it.")}</EmptyStateBody>
                </EmptyState>}
            {pagination("bottom")}
        </>
    );
}
