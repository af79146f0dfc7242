#!/usr/bin/env python3
"""The generator's version tables: each UBL version's catalogue comes out as released, and the
checks that keep it so fail loudly.

    generator_versions_test.py <source dir>
"""

import dataclasses
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(sys.argv.pop(1))
sys.path.insert(0, str(SOURCE / "tools" / "gen"))

import catalogue  # noqa: E402
import emit_idl  # noqa: E402
import emit_typelib_idl  # noqa: E402
import gen  # noqa: E402
import versions  # noqa: E402


def build(version):
    return catalogue.build(gen.load_schemas(version, version.schema_path), version)


class Versions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.ubl20 = build(versions.UBL_2_0)
        cls.ubl21 = build(versions.UBL_2_1)

    def kinds(self, surface):
        counts = {}
        for c in surface.classes:
            counts[c.kind] = counts.get(c.kind, 0) + 1
        return counts

    def test_each_version_has_its_classes(self):
        self.assertEqual({"datatype": 8, "aggregate": 115, "document": 31}, self.kinds(self.ubl20))
        self.assertEqual(6627, self.ubl20.member_count)
        self.assertEqual({"datatype": 8, "aggregate": 230, "document": 65}, self.kinds(self.ubl21))

    def test_identities_follow_each_libid(self):
        self.assertEqual("{e56b9441-b0eb-11df-8a48-005056c00008}", self.ubl20["Identifier"].clsid)
        first, last = self.ubl21.classes[0], self.ubl21.classes[-1]
        self.assertEqual("{3691431e-66ad-4637-a22b-6995746519df}", first.clsid)
        self.assertEqual("{3691457b-66ad-4637-a22b-6995746519df}", last.iid)  # the 606th
        names = [c.name for c in self.ubl21.classes]
        self.assertEqual(sorted(names, key=str.lower), names)

    def test_2_0_exceptions_stay_in_2_0(self):
        members20 = {m.name for c in self.ubl20.classes for m in c.members}
        members21 = {m.name for c in self.ubl21.classes for m in c.members}
        for irregular in ("item", "clearRevesrencedContract", "clearRespons",
                          "clearUBLExtensionList"):
            self.assertIn(irregular, members20)
            self.assertNotIn(irregular, members21)
        self.assertIn("clearReferencedContracts", members21)
        invoice = [f.element for f in self.ubl21["Invoice"].families][:2]
        self.assertEqual(["UBLExtensions", "UBLVersionID"], invoice)
        self.assertIn("UBLExtensions", [f.element for f in self.ubl21["FreightInvoice"].families])
        self.assertEqual(["Item", "Item"], [m.name for m in self.ubl21["InvoiceLine"].members
                                            if m.name.lower() == "item"])

    def test_2_1_data_types_take_attributes_along_the_derivation_chain(self):
        attributes = {c.name: [f.name for f in c.families if f.kind.startswith("attribute")]
                      for c in self.ubl21.classes if c.kind == "datatype"}
        self.assertEqual(34, sum(map(len, attributes.values())))
        self.assertEqual(["CurrencyCodeListVersionID", "CurrencyID"], attributes["Amount"])
        self.assertEqual(["LanguageID", "LanguageLocaleID"], attributes["Text"])
        amount = self.ubl21["Amount"]
        self.assertEqual("attribute_required",
                         next(f.kind for f in amount.families if f.name == "CurrencyID"))

    def test_the_windows_type_library_fits_widl(self):
        # widl crashes past 512 type descriptions in one library.
        self.assertEqual(emit_idl.idl(self.ubl20), emit_typelib_idl.typelib_idl(self.ubl20))
        text = emit_typelib_idl.typelib_idl(self.ubl21)
        inside = text[text.index("library TivaloCOM21"):]
        interfaces = inside.count("interface I") - inside.count("[default] interface I")
        coclasses = inside.count("\tcoclass ")
        self.assertEqual(303, interfaces)
        self.assertEqual(65, coclasses)
        self.assertLessEqual(interfaces + coclasses, 512)
        self.assertIn("\tcoclass Invoice\n", inside)
        self.assertIn("interface IInvoice : IDispatch", inside)

    def test_a_departure_from_the_recorded_order_is_refused(self):
        record = (SOURCE / versions.UBL_2_1.class_order_record).read_text(encoding="utf-8")
        with tempfile.TemporaryDirectory() as scratch:
            tampered = pathlib.Path(scratch) / "record.md"
            tampered.write_text(record.replace("| 5 | AllowanceCharge |", "| 5 | Allowance |"),
                                encoding="utf-8")
            version = dataclasses.replace(versions.UBL_2_1, class_order_record=str(tampered))
            with self.assertRaisesRegex(ValueError, "added \\['AllowanceCharge'\\]"):
                catalogue.check_order(version, [c.name for c in self.ubl21.classes])

    def test_adjustments_meant_for_another_release_fail_by_name(self):
        with tempfile.TemporaryDirectory() as scratch:
            run = subprocess.run(
                [sys.executable, str(SOURCE / "tools" / "adjust_schemas.py"), "--ubl", "2.0",
                 "--schemas", str(versions.UBL_2_1.schema_path), "--out", scratch + "/copy"],
                capture_output=True, text=True)
        self.assertEqual(1, run.returncode)
        self.assertIn("UnqualifiedDataTypeSchemaModule-2.0.xsd: not in", run.stderr)


if __name__ == "__main__":
    unittest.main()
