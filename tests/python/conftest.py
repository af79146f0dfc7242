"""Shared fixtures: the bundled schema and a small invoice built through late binding."""
import os
import pathlib

import pytest

import tivalo

SOURCE_DIR = pathlib.Path(os.environ.get("TIVALO_SOURCE_DIR", pathlib.Path(__file__).parents[2]))
SCHEMA_DIR = pathlib.Path(os.environ.get("TIVALO_SCHEMA_DIR", SOURCE_DIR / "schemas/ubl-2.0/xsd"))


@pytest.fixture(scope="session")
def invoice_schema():
    path = SCHEMA_DIR / "maindoc" / "UBL-Invoice-2.0.xsd"
    assert path.is_file(), path
    return str(path)


@pytest.fixture
def invoice():
    return tivalo.Dispatch("TivaloCOM.Invoice")
