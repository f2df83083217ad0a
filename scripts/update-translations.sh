#!/bin/sh
# Collects every qtTrId text of the sources into the translation files. English takes its texts
# from the //% comments; other languages keep what translators wrote and get new ids to fill in.
set -eu
cd "$(dirname "$0")/.."
LUPDATE=${LUPDATE:-/usr/lib/qt6/bin/lupdate}
for ts in resources/translations/salvora3_*.ts; do
    "$LUPDATE" -locations none -no-obsolete src -ts "$ts"
done
python3 - resources/translations/salvora3_en.ts <<'PY'
import sys, xml.etree.ElementTree as ET
path = sys.argv[1]
tree = ET.parse(path)
for m in tree.iter('message'):
    t = m.find('translation')
    source = m.findtext('source')
    t.attrib.pop('type', None)
    if m.get('numerus') == 'yes':
        # English has two forms, written in the source as "%n item(s)".
        for f in list(t):
            t.remove(f)
        t.text = None
        for form in (source.replace('(s)', ''), source.replace('(s)', 's')):
            ET.SubElement(t, 'numerusform').text = form
    else:
        t.text = source
with open(path, 'wb') as f:
    f.write(b'<?xml version="1.0" encoding="utf-8"?>\n<!DOCTYPE TS>\n')
    tree.write(f, encoding='utf-8')
PY
