// The component through JScript: CreateObject, late binding and try/catch.
// Arguments: a working directory and the UBL 2.0 Invoice schema. Prints "FAIL: ..." per failed
// check and "jscript: done" at the end; the runner requires that line.
var failures = 0;
var work = WScript.Arguments(0);
var schema = WScript.Arguments(1);

function check(condition, what) {
  if (!condition) {
    WScript.Echo("FAIL: " + what);
    failures++;
  }
}

function make(name) { return new ActiveXObject("TivaloCOM." + name); }

var invoice = make("Invoice");
invoice.ID.Value = "INV-JS-1";
var amount = invoice.LegalMonetaryTotal.PayableAmount;
amount.Value = 99.5;
amount.CurrencyID = "EUR";
var line = make("InvoiceLine");
line.ID.Value = "1";
line.LineExtensionAmount.Value = 99.5;
line.LineExtensionAmount.CurrencyID = "EUR";
line.Item.Name.Value = "caf" + String.fromCharCode(0xE9);
invoice.addInvoiceLine(line);

var path = work + "\\js-invoice.xml";
invoice.Write(path);
var read = make("Invoice");
read.Read(path);
check(read.ID.Value == "INV-JS-1", "Read: ID");
check(read.LegalMonetaryTotal.PayableAmount.Value == 99.5, "Read: amount");
check(read.getInvoiceLine(0).item.Name.Value == "caf" + String.fromCharCode(0xE9), "Read: Unicode item name");
check(read.InvoiceLineCount == 1, "Read: line count");
var errors = invoice.GetSchemaValidationErrors(path, schema);
check(errors == null || errors == "", "schema errors: " + errors);

var copy = make("Invoice");
copy.XML = invoice.XML;
check(copy.ID.Value == "INV-JS-1", "XML round trip");

var caught = false;
try {
  read.Read(work + "\\absent.xml");
} catch (e) {
  caught = true;
  // Wine's JScript numbers the exception itself; the component's description comes through.
  check(e.number < 0, "e.number " + (e.number >>> 0).toString(16));
  check(e.description == "Tivalo: Can't open file for read.", "e.description " + e.description);
}
check(caught, "a failing Read throws");
check(read.ID.Value == "INV-JS-1", "a failing Read keeps the content");

caught = false;
try {
  read.getInvoiceLine(0).LineExtensionAmount.Value = "not a number";
} catch (e) {
  caught = true;
}
check(caught, "a value that does not convert throws");

WScript.Echo("jscript: done, " + failures + " failed");
