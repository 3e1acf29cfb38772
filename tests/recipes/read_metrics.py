#!/usr/bin/python3
"""A page of metrics as Prometheus' own parser reads it: read_metrics.py FILE. Each must be of one sample with a help text."""
import pathlib
import sys

from prometheus_client.parser import text_string_to_metric_families

families = list(text_string_to_metric_families(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8")))
for family in families:
    print(family.name, family.type, family.samples[0].value)
    if family.type not in ("counter", "gauge") or not family.documentation or len(family.samples) != 1:
        sys.exit(f"{family.name} is not as it should be")
values = {sample.name: sample.value for family in families for sample in family.samples}
if values["receiver_monitor_receiver_present"] != 1 or values["receiver_monitor_pictures_total"] < 10:
    sys.exit("the camera plays, and the metrics do not say so")
