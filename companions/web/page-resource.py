#!/usr/bin/env python3
"""Lists the files of the page for glib-compile-resources: page-resource.py INDEX XML DYGRAPHS

The files are INDEX and those that it refers to. Without the folder DYGRAPHS there is no page, and
the list is empty.
"""

import pathlib
import re
import sys

index, xml, dygraphs = map(pathlib.Path, sys.argv[1:])
names = []
if dygraphs.is_dir():
    names = [index.name, *re.findall(r'(?:src|href)="([\w.]+)"', index.read_text(encoding='utf-8'))]
files = ''.join(f'    <file compressed="true">{name}</file>\n' for name in names)
xml.write_text(f'<gresources>\n  <gresource prefix="/vekmetrics-web">\n{files}  </gresource>\n'
               '</gresources>\n', encoding='utf-8')
