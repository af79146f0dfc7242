' The UBL 2.1 component through VBScript, beside the 2.0 one in the same script host.
' Arguments: a working directory and the UBL 2.1 Invoice schema. Prints "FAIL: ..." per failed
' check and "vbscript 2.1: done" at the end; the runner requires that line.
Option Explicit
Dim failures, work, schema
failures = 0
work = WScript.Arguments(0)
schema = WScript.Arguments(1)

Sub Check(condition, what)
  If Not condition Then
    WScript.Echo "FAIL: " & what
    failures = failures + 1
  End If
End Sub

Function Make(name)
  Set Make = CreateObject("TivaloCOM21." & name)
End Function

Function BuildInvoice()
  Dim invoice, partyName, line
  Set invoice = CreateObject("TivaloCOM21.Invoice.1")
  invoice.ID.Value = "INV-21-VBS"
  invoice.IssueDate = DateSerial(2024, 3, 15)
  ' Members that UBL 2.0's Invoice does not have.
  invoice.DueDate = DateSerial(2024, 4, 15)
  invoice.BuyerReference.Value = "PO-4711"
  invoice.InvoiceTypeCode.Value = "380"
  Set partyName = Make("PartyName")
  partyName.Name.Value = "Atelier"
  invoice.AccountingSupplierParty.Party.addPartyName partyName
  invoice.AccountingCustomerParty.Party.PostalAddress.CityName.Value = "Hamburg"
  invoice.LegalMonetaryTotal.PayableAmount.Value = 312.5
  invoice.LegalMonetaryTotal.PayableAmount.CurrencyID = "EUR"
  Set line = Make("InvoiceLine")
  line.ID.Value = "1"
  line.LineExtensionAmount.Value = 312.5
  line.LineExtensionAmount.CurrencyID = "EUR"
  line.Item.Name.Value = "Desk lamp"
  invoice.addInvoiceLine line
  Set BuildInvoice = invoice
End Function

Sub CheckContent(invoice, what)
  Check invoice.ID.Value = "INV-21-VBS", what & ": ID"
  Check invoice.IssueDate = DateSerial(2024, 3, 15), what & ": IssueDate"
  Check invoice.IsDueDateSet, what & ": DueDate set"
  Check invoice.DueDate = DateSerial(2024, 4, 15), what & ": DueDate"
  Check invoice.BuyerReference.Value = "PO-4711", what & ": BuyerReference"
  Check invoice.InvoiceTypeCode.Value = "380", what & ": InvoiceTypeCode"
  Check invoice.AccountingSupplierParty.Party.getPartyName(0).Name.Value = "Atelier", what & ": party name"
  Check invoice.LegalMonetaryTotal.PayableAmount.Value = 312.5, what & ": payable amount"
  Check invoice.InvoiceLineCount = 1, what & ": line count"
  Check invoice.getInvoiceLine(0).Item.Name.Value = "Desk lamp", what & ": item name"
End Sub

Dim written, read, copy, path, errors, fso, stream, content, old
Set fso = CreateObject("Scripting.FileSystemObject")
path = work & "\vbs-invoice21.xml"

' Write, Read into a new object, compare.
Set written = BuildInvoice()
written.Write path
Set read = Make("Invoice")
read.Read path
CheckContent read, "Read"

' The written file: the 2.1 element in place, CR LF line ends, valid against the 2.1 schema.
Set stream = fso.OpenTextFile(path, 1)
content = stream.ReadAll
stream.Close
Check InStr(content, "<cbc:DueDate>2024-04-15</cbc:DueDate>" & vbCrLf) > 0, "DueDate written, CR LF"
errors = written.GetSchemaValidationErrors(path, schema)
Check IsEmpty(errors) Or errors = "", "schema errors: " & errors

' Names are looked up without regard to case.
Check read.buyerreference.value = "PO-4711", "lower-case names"

' XML put into a new object.
Set copy = Make("Invoice")
copy.XML = written.XML
CheckContent copy, "XML put"

' Each library has its own classes: UBL 2.0's Invoice has no DueDate.
Set old = CreateObject("TivaloCOM.Invoice")
On Error Resume Next
Dim due
due = old.DueDate
Check Err.Number <> 0, "a 2.0 Invoice has no DueDate"
Err.Clear

' A failing Read: the component's error through error info, the document left as it was.
read.Read work & "\absent.xml"
Check Err.Number = &H80020009, "failing Read: Err.Number " & Hex(Err.Number)
Check Err.Source = "TivaloCOM21.Invoice.1", "failing Read: Err.Source " & Err.Source
Check Err.Description = "Tivalo: Can't open file for read.", "failing Read: " & Err.Description
Err.Clear
read.XML = "<Invoice"
Check Err.Number = &H80020009, "malformed XML put: Err.Number " & Hex(Err.Number)
Check Err.Source = "TivaloCOM21.Invoice.1", "malformed XML put: Err.Source " & Err.Source
Check Len(Err.Description) > 0, "malformed XML put has a description"
Err.Clear
On Error GoTo 0
CheckContent read, "after failed reads"

WScript.Echo "vbscript 2.1: done, " & failures & " failed"
