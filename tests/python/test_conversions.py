"""Python values to and from the automation types, through real members."""
import datetime

import pytest

import tivalo


def make(class_name):
    return tivalo.Dispatch("TivaloCOM." + class_name)


class TestStrings:
    def test_null_bstr_is_none_and_none_puts_one_that_counts_as_set(self):
        identifier = make("Identifier")
        assert identifier.Value is None and identifier.SchemeID is None
        assert identifier.IsSchemeIDSet is False
        identifier.SchemeID = None
        assert identifier.IsSchemeIDSet is True and identifier.SchemeID is None

    @pytest.mark.parametrize("text", ["INV-1", "Hafenstraße 7", "naïve ✓ 𝄞", " spaced  "])
    def test_text_round_trips(self, text):
        identifier = make("Identifier")
        identifier.Value = text
        identifier.SchemeAgencyName = text
        assert identifier.Value == text
        assert identifier.SchemeAgencyName == text


def test_numbers_r8_as_float_i4_as_int(invoice):
    amount = make("Amount")
    assert amount.Value == 0.0 and type(amount.Value) is float
    for value in (1234.5678, 7, 2**40):  # an int goes as R8 where R8 is declared
        amount.Value = value
        assert amount.Value == float(value) and type(amount.Value) is float
    count = invoice.InvoiceLineCount
    assert count == 0 and type(count) is int
    with pytest.raises(OverflowError):
        invoice.getInvoiceLine(2**31)


def test_booleans_round_trip_and_only_true_is_written_true(invoice):
    assert invoice.CopyIndicator is False and invoice.IsCopyIndicatorSet is False
    invoice.CopyIndicator = True
    assert invoice.CopyIndicator is True and invoice.IsCopyIndicatorSet is True
    # True goes as the automation TRUE (-1), the only value written as true.
    assert "<cbc:CopyIndicator>true</cbc:CopyIndicator>" in invoice.XML
    invoice.CopyIndicator = False
    assert "<cbc:CopyIndicator>false</cbc:CopyIndicator>" in invoice.XML


class TestDates:
    def test_unset_date_is_the_date_origin(self, invoice):
        assert invoice.IssueDate == datetime.datetime(1899, 12, 30)

    @pytest.mark.parametrize("value", [
        datetime.datetime(2024, 2, 29, 13, 45, 30),
        datetime.datetime(1899, 12, 30, 6, 0),
        datetime.datetime(1850, 6, 1, 18, 15, 1),
        datetime.datetime(100, 1, 1),
        datetime.datetime(9999, 12, 31, 23, 59, 59),
    ])
    def test_datetime_round_trips(self, invoice, value):
        invoice.IssueDate = value
        got = invoice.IssueDate
        assert got == value and type(got) is datetime.datetime

    @pytest.mark.parametrize("member, value, expected", [
        ("IssueDate", datetime.date(2024, 3, 15), datetime.datetime(2024, 3, 15)),  # midnight
        ("IssueTime", datetime.time(23, 59, 59), datetime.datetime(1899, 12, 30, 23, 59, 59)),
        # fractions of a second and zones are dropped
        ("IssueDate", datetime.datetime(2024, 1, 1, 10, 0, 0, 999999), datetime.datetime(2024, 1, 1, 10)),
        ("IssueDate", datetime.datetime(2024, 1, 1, 10, tzinfo=datetime.timezone(
            datetime.timedelta(hours=5))), datetime.datetime(2024, 1, 1, 10)),
    ])
    def test_dates_times_and_what_is_dropped(self, invoice, member, value, expected):
        setattr(invoice, member, value)
        assert getattr(invoice, member) == expected

    def test_years_before_100_are_refused(self, invoice):
        # The platform would read year 99 as 1999.
        with pytest.raises(ValueError):
            invoice.IssueDate = datetime.date(99, 1, 1)


class TestBytes:
    def test_new_binary_object_holds_empty_bytes(self):
        assert make("BinaryObject").Value == b""

    @pytest.mark.parametrize("value", [
        b"\x00\x01\xfe\xff", bytearray(b"abc"), memoryview(b"xyz"), bytes(range(256)) * 4])
    def test_bytes_round_trip(self, value):
        blob = make("BinaryObject")
        blob.Value = value
        got = blob.Value
        assert got == bytes(value) and type(got) is bytes


class TestObjects:
    def test_wrappers_of_one_object_compare_equal(self, invoice):
        first, second = invoice.ID, invoice.ID
        assert repr(first) == "<tivalo.Dispatch IIdentifier>"
        assert first is not second
        assert first == second and not (first != second)
        assert hash(first) == hash(second)
        assert len({first, second}) == 1
        assert invoice.ID != invoice.UBLVersionID
        assert invoice.ID != "A1" and not (invoice.ID == 1)

    def test_put_and_add_store_the_object_itself(self, invoice):
        identifier = make("Identifier")
        invoice.ID = identifier
        assert invoice.ID == identifier
        identifier.Value = "shared"
        assert invoice.ID.Value == "shared"

        line = make("InvoiceLine")
        invoice.addInvoiceLine(line)
        invoice.addInvoiceLine(line)
        assert invoice.getInvoiceLine(0) == line == invoice.getInvoiceLine(1)

    def test_values_without_an_automation_form_are_refused(self, invoice):
        with pytest.raises(TypeError):
            invoice.IssueDate = [2024, 1, 1]
        with pytest.raises(TypeError):
            invoice.ID.Value = object()
        with pytest.raises(TypeError):
            invoice.addInvoiceLine({"ID": "1"})
