' The component through VBScript, as a Windows script uses it: CreateObject and late binding only.
' Arguments: a working directory and the UBL 2.0 Invoice schema. Prints "FAIL: ..." per failed
' check and "vbscript: done" at the end; the runner requires that line.
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
  Set Make = CreateObject("TivaloCOM." & name)
End Function

Sub SetAmount(target, value)
  target.Value = value
  target.CurrencyID = "EUR"
End Sub

Function BuildInvoice()
  Dim invoice, supplier, partyName, line, total
  Set invoice = Make("Invoice")
  invoice.ID.Value = "INV-VBS-0001"
  invoice.IssueDate = DateSerial(2024, 3, 15)
  invoice.IssueTime = TimeSerial(9, 30, 5)
  Set supplier = invoice.AccountingSupplierParty.Party
  Set partyName = Make("PartyName")
  partyName.Name.Value = "Atelier"
  supplier.addPartyName partyName
  supplier.PostalAddress.CityName.Value = "Lyon"
  invoice.AccountingCustomerParty.Party.PostalAddress.CityName.Value = "Hamburg"
  Set total = invoice.LegalMonetaryTotal
  SetAmount total.PayableAmount, 312.5
  Set line = Make("InvoiceLine")
  line.ID.Value = "1"
  line.InvoicedQuantity.Value = 4
  line.InvoicedQuantity.UnitCode = "C62"
  SetAmount line.LineExtensionAmount, 200
  line.Item.Name.Value = "Desk lamp"
  invoice.addInvoiceLine line
  Set BuildInvoice = invoice
End Function

Sub CheckContent(invoice, what)
  Check invoice.ID.Value = "INV-VBS-0001", what & ": ID"
  Check invoice.IssueDate = DateSerial(2024, 3, 15), what & ": IssueDate"
  Check Hour(invoice.IssueTime) = 9 And Minute(invoice.IssueTime) = 30 And _
        Second(invoice.IssueTime) = 5, what & ": IssueTime"
  Check invoice.AccountingSupplierParty.Party.getPartyName(0).Name.Value = "Atelier", what & ": party name"
  Check invoice.AccountingSupplierParty.Party.PostalAddress.CityName.Value = "Lyon", what & ": city"
  Check invoice.LegalMonetaryTotal.PayableAmount.Value = 312.5, what & ": payable amount"
  Check invoice.LegalMonetaryTotal.PayableAmount.CurrencyID = "EUR", what & ": currency"
  Check invoice.InvoiceLineCount = 1, what & ": line count"
  Check invoice.getInvoiceLine(0).InvoicedQuantity.UnitCode = "C62", what & ": unit"
  Check invoice.getInvoiceLine(0).Item.Name.Value = "Desk lamp", what & ": item name"
End Sub

Dim written, read, copy, path, text, errors, fso, stream, content, line, item1, item2
Set fso = CreateObject("Scripting.FileSystemObject")
path = work & "\vbs-invoice.xml"

' Write, Read into a new object, compare.
Set written = BuildInvoice()
written.Write path
Set read = Make("Invoice")
read.Read path
CheckContent read, "Read"

' The schema check of the written file finds nothing.
errors = written.GetSchemaValidationErrors(path, schema)
Check IsEmpty(errors) Or errors = "", "schema errors: " & errors

' The file is text with CR LF line ends.
Set stream = fso.OpenTextFile(path, 1)
content = stream.ReadAll
stream.Close
Check InStr(content, vbCrLf) > 0, "the written file has CR LF line ends"
Check InStr(Replace(content, vbCrLf, ""), vbLf) = 0, "no bare line feeds"

' XML get and put.
text = written.XML
Check InStr(text, "<cbc:ID>INV-VBS-0001</cbc:ID>") > 0, "XML get"
Set copy = Make("Invoice")
copy.XML = text
CheckContent copy, "XML put"

' A failing Read: the error of the component, the document left as it was.
On Error Resume Next
read.Read work & "\absent.xml"
Check Err.Number = &H80020009, "failing Read: Err.Number " & Hex(Err.Number)
Check Err.Source = "TivaloCOM.Invoice.1", "failing Read: Err.Source " & Err.Source
Check Err.Description = "Tivalo: Can't open file for read.", "failing Read: " & Err.Description
Err.Clear
read.XML = "<Invoice"
Check Err.Number = &H80020009, "malformed XML put: Err.Number " & Hex(Err.Number)
Check Len(Err.Description) > 0, "malformed XML put has a description"
Err.Clear
On Error GoTo 0
CheckContent read, "after failed reads"

' Reading an absent optional child creates it.
Set copy = Make("Invoice")
Check Not copy.IsTaxPointDateSet, "TaxPointDate starts unset"
Check Not copy.IsOrderReferenceSet, "OrderReference starts unset"
copy.OrderReference.ID.Value = "PO-7"
Check copy.IsOrderReferenceSet, "reading OrderReference created it"

' item and Item are one member.
Set line = Make("InvoiceLine")
line.item.Name.Value = "lower"
Check line.Item.Name.Value = "lower", "item and Item reach the same member"
Set item1 = line.ITEM
Set item2 = line.item
Check item1 Is item2, "the same child object"

' Unicode is compared here, not printed.
Dim note
Set note = Make("Text")
note.Value = "Lumi" & Chr(232) & "re"
Check Len(note.Value) = 7 And Asc(Mid(note.Value, 5, 1)) = 232, "a non-ASCII text survives"

WScript.Echo "vbscript: done, " & failures & " failed"
