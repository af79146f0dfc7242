"""Validates a batch of UBL documents on a Dask cluster and prints each finding as the tool does.

    PYTHONPATH=build/python /usr/bin/python3 examples/validate_on_dask.py FOLDER_OR_FILE... \
        [--rules RULES.xsl] [--no-schema] [--scheduler tcp://HOST:8786]

Without --scheduler it starts a cluster of two worker processes on this machine. With one, the
workers of that cluster do the checking: each needs the tivalo package (and Java with Saxon-HE for
XSLT 2.0 rule sets) and must see the documents and the stylesheet under the same paths. Exit
status as the tool's: 0 clean, 1 findings.
"""
import argparse
import os
import sys

from distributed import Client, LocalCluster

import tivalo


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("paths", nargs="+")
    parser.add_argument("--rules")
    parser.add_argument("--no-schema", action="store_true")
    parser.add_argument("--scheduler", help="address of a running Dask scheduler")
    arguments = parser.parse_args()
    # Workers on other machines resolve paths on their own: hand them absolute ones.
    paths = [os.path.abspath(path) for path in arguments.paths]

    if arguments.scheduler:
        client = Client(arguments.scheduler)
    else:
        client = Client(LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None))
    with client:
        findings = tivalo.validate(paths, rules=arguments.rules, no_schema=arguments.no_schema,
                                   client=client)
    for finding in findings:
        print(finding)
    return 1 if any(finding.severity == "error" for finding in findings) else 0


if __name__ == "__main__":
    sys.exit(main())
