// The UBL 2.1 component through JScript: CreateObject, late binding by name and try/catch.
// Arguments: a working directory and the UBL 2.1 Invoice schema. Prints "FAIL: ..." per failed
// check and "jscript 2.1: done" at the end; the runner requires that line.
var failures = 0;
var work = WScript.Arguments(0);
var schema = WScript.Arguments(1);

function check(condition, what) {
  if (!condition) {
    WScript.Echo("FAIL: " + what);
    failures++;
  }
}

function make(name) { return new ActiveXObject("TivaloCOM21." + name); }

// Wine's JScript neither makes nor takes VT_DATE values: dates go in as OLE day numbers (the
// conversion to DATE is the component's) and are checked in the XML.
var march15 = 45366, april15 = 45397;
var invoice = make("Invoice");
invoice.ID.Value = "INV-21-JS";
invoice.IssueDate = march15;
invoice.DueDate = april15;
invoice.BuyerReference.Value = "caf" + String.fromCharCode(0xE9);
var amount = invoice.LegalMonetaryTotal.PayableAmount;
amount.Value = 99.5;
amount.CurrencyID = "EUR";
var line = make("InvoiceLine");
line.ID.Value = "1";
line.LineExtensionAmount.Value = 99.5;
line.LineExtensionAmount.CurrencyID = "EUR";
invoice.addInvoiceLine(line);

var path = work + "\\js-invoice21.xml";
invoice.Write(path);
var read = make("Invoice");
read.Read(path);
check(read.ID.Value == "INV-21-JS", "Read: ID");
check(read.IsDueDateSet, "Read: DueDate set");
check(read.BuyerReference.Value == "caf" + String.fromCharCode(0xE9), "Read: Unicode BuyerReference");
check(read.LegalMonetaryTotal.PayableAmount.Value == 99.5, "Read: amount");
check(read.InvoiceLineCount == 1, "Read: line count");
check(read.XML.indexOf("<cbc:IssueDate>2024-03-15</cbc:IssueDate>") >= 0, "Read: IssueDate");
check(read.XML.indexOf("<cbc:DueDate>2024-04-15</cbc:DueDate>") >= 0, "Read: DueDate");
var errors = invoice.GetSchemaValidationErrors(path, schema);
check(errors == null || errors == "", "schema errors: " + errors);

// A 2.1 document that breaks the 2.1 schema (a second DueDate) is reported.
var broken = read.XML.replace("<cbc:DueDate>", "<cbc:DueDate>2024-04-16</cbc:DueDate><cbc:DueDate>");
errors = invoice.GetSchemaValidationErrorsFromXML(broken, schema);
check(errors != null && errors.indexOf("DueDate") >= 0, "schema finding: " + errors);

// Late binding by a name held in a string.
var member = "BuyerReference";
check(read[member].Value == read.BuyerReference.Value, "a member by computed name");

var caught = false;
try {
  read.Read(work + "\\absent.xml");
} catch (e) {
  caught = true;
  check(e.number < 0, "e.number " + (e.number >>> 0).toString(16));
  check(e.description == "Tivalo: Can't open file for read.", "e.description " + e.description);
}
check(caught, "a failing Read throws");
check(read.ID.Value == "INV-21-JS", "a failing Read keeps the content");

caught = false;
try {
  read.DueDate = "not a date";
} catch (e) {
  caught = true;
}
check(caught, "a value that does not convert throws");
check(read.XML.indexOf("<cbc:DueDate>2024-04-15</cbc:DueDate>") >= 0, "DueDate kept");

WScript.Echo("jscript 2.1: done, " + failures + " failed");
