// SPDX-License-Identifier: MIT
// colours: light or dark, as the user has chosen for all of Cockpit, or as the browser prefers.

export function followColourScheme() {
    const dark = window.matchMedia("(prefers-color-scheme: dark)");
    const choose = () => {
        const style = localStorage.getItem("shell:style") ?? "auto";
        document.documentElement.classList.toggle("pf-theme-dark", style === "dark" || (style === "auto" && dark.matches));
    };
    dark.addEventListener("change", choose);
    window.addEventListener("storage", event => { if (event.key === "shell:style") choose() });
    window.addEventListener("cockpit-style", event => {
        if (event instanceof CustomEvent && typeof event.detail?.style === "string") localStorage.setItem("shell:style", event.detail.style);
        choose();
    });
    choose();
}
