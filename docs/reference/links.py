#!/usr/bin/env python3
"""Looks at each link of a site on the disk: whether its file is there, and the place in it.

    links.py FOLDER
"""
import html
import pathlib
import re
import sys
import urllib.parse

folder = pathlib.Path(sys.argv[1])
texts = {page: page.read_text(errors="replace") for page in sorted(folder.glob("*.html"))}
places = {page: set(re.findall(r'(?:id|name)="([^"]+)"', text)) for page, text in texts.items()}

faults, looked_at = set(), 0
for page, text in texts.items():
    for link in re.findall(r'(?:href|src)="([^"]*)"', text):
        if re.match(r"([a-z]+:|//)", link):
            continue
        looked_at += 1
        place, _, anchor = html.unescape(link).partition("#")
        target = folder / urllib.parse.unquote(place) if place else page
        if not target.exists():
            faults.add(f"{page.name}: {link} leads nowhere")
        elif anchor and target in places and urllib.parse.unquote(anchor) not in places[target]:
            faults.add(f"{page.name}: {link}: no such place")
print("\n".join(sorted(faults)) if faults else f"{looked_at} links in {len(texts)} pages, none is dead")
sys.exit(1 if faults or not texts else 0)
