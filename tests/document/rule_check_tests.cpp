// The rule check on its own: what a stylesheet reports, the kept compiled stylesheets, and checks
// on several threads at once. What the processor says about a stylesheet is seen through the tool.
#include "document/rule_check.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;
namespace Rules = Morvek::Tivalo::Rules;

namespace {

const std::string document =
    "<?xml version=\"1.0\"?>\n<Invoice xmlns=\"urn:x\">\n  <ID>A-1</ID>\n  <ID>B-2</ID>\n</Invoice>\n";

std::string stylesheet(const std::string& body, const std::string& version = "1.0") {
  return "<xsl:stylesheet version=\"" + version +
         "\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\" xmlns:u=\"urn:x\">\n" + body +
         "\n</xsl:stylesheet>\n";
}

class RuleCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_ = fs::temp_directory_path() /
                 ("tivalo-rules-" + std::to_string(::getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(directory_);
  }
  void TearDown() override {
    Rules::set_stylesheet_cache_capacity(16);
    Rules::set_budget({});
    fs::remove_all(directory_);
  }
  std::string file(const std::string& name, const std::string& content) const {
    const std::string path = (directory_ / name).string();
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  fs::path directory_;
};

std::vector<std::string> texts(const Rules::Report& report) {
  std::vector<std::string> found;
  for (const Rules::Finding& finding : report.findings) found.push_back(finding.text);
  return found;
}

TEST_F(RuleCheck, EveryMessageAndEveryAssertionInOrder) {
  const std::string svrl = file("svrl.xsl", stylesheet(R"X(
  <xsl:template match="/" xmlns:svrl="http://purl.oclc.org/dsdl/svrl">
    <xsl:message>first</xsl:message><xsl:message>second</xsl:message>
    <svrl:schematron-output>
      <svrl:ns-prefix-in-attribute-values prefix="u" uri="urn:x"/>
      <xsl:for-each select="/u:Invoice/u:ID">
        <svrl:failed-assert id="R-1" flag="fatal" test="false()"
            location="/u:Invoice/u:ID[{position()}]"><svrl:text>
          Bad   <xsl:value-of select="."/></svrl:text></svrl:failed-assert>
      </xsl:for-each>
      <svrl:successful-report id="R-2" location="/*:Invoice"><svrl:text>noted</svrl:text></svrl:successful-report>
    </svrl:schematron-output>
  </xsl:template>)X"));
  const Rules::Report report = Rules::check(document, svrl);
  ASSERT_EQ(Rules::Report::Outcome::checked, report.outcome);
  EXPECT_EQ((std::vector<std::string>{"first", "second", "Bad A-1", "Bad B-2", "noted"}), texts(report));
  const Rules::Finding& second_id = report.findings[3];
  EXPECT_EQ(Rules::Finding::Kind::failed_assert, second_id.kind);
  EXPECT_EQ("R-1", second_id.id);
  EXPECT_EQ("fatal", second_id.flag);
  EXPECT_EQ("/u:Invoice/u:ID[2]", second_id.location);
  EXPECT_EQ(4, second_id.line);
  EXPECT_EQ(2, report.findings[4].line) << "an XPath 2.0 location is looked up as well";
  EXPECT_TRUE(report.problems.empty());
}

TEST_F(RuleCheck, NothingOutsideLocalFilesIsRead) {
  const std::string importing = file("import.xsl", stylesheet(
      "<xsl:import href=\"http://127.0.0.1:9/rules.xsl\"/>"
      "<xsl:template match=\"/\"><xsl:message>ran</xsl:message></xsl:template>"));
  const Rules::StylesheetLoad load = Rules::load_stylesheet(importing);
  EXPECT_FALSE(load.loaded);
  ASSERT_FALSE(load.said.empty());
  EXPECT_NE(std::string::npos, load.said[0].text.find("Network access refused")) << load.said[0].text;

  const std::string with_dtd = "<!DOCTYPE Invoice [<!ENTITY e SYSTEM \"file:///etc/passwd\">]>\n"
                               "<Invoice xmlns=\"urn:x\"><ID>&e;</ID></Invoice>";
  const Rules::Report refused = Rules::check(with_dtd, file("ok.xsl", stylesheet(
      "<xsl:template match=\"/\"><xsl:message><xsl:value-of select=\".\"/></xsl:message></xsl:template>")));
  EXPECT_EQ(Rules::Report::Outcome::document_refused, refused.outcome);
  EXPECT_EQ(Rules::document_type_refusal, refused.refusal);
}

// The same report field by field, whether the compiled stylesheet was kept or not; an edit of the
// stylesheet or of a file it includes is seen by the next check.
TEST_F(RuleCheck, KeptStylesheetsChangeNoResult) {
  const std::string included = file("codes.xsl", stylesheet(
      "<xsl:template name=\"say\"><xsl:message>version 1</xsl:message></xsl:template>"));
  const std::string main = file("main.xsl", stylesheet(
      "<xsl:include href=\"codes.xsl\"/><xsl:template match=\"/\"><xsl:call-template name=\"say\"/>"
      "<xsl:message><xsl:value-of select=\"count(//u:ID)\"/></xsl:message></xsl:template>"));
  const auto report_text = [&] {
    std::string all;
    const Rules::Report report = Rules::check(document, main);
    for (const Rules::Finding& finding : report.findings) all += finding.text + "|";
    for (const Rules::Diagnostic& problem : report.problems) all += problem.text + "|";
    return all;
  };
  Rules::set_stylesheet_cache_capacity(0);
  const std::string uncached = report_text();
  Rules::set_stylesheet_cache_capacity(16);
  EXPECT_EQ(uncached, report_text());
  EXPECT_EQ(uncached, report_text());
  EXPECT_EQ("version 1|2|", uncached);

  file("codes.xsl", stylesheet(
      "<xsl:template name=\"say\"><xsl:message>version two</xsl:message></xsl:template>"));
  EXPECT_EQ("version two|2|", report_text());
  // Rewritten with the same size and modification time, then replaced by a rename: both seen.
  const auto kept_time = fs::last_write_time(included);
  file("codes.xsl", stylesheet(
      "<xsl:template name=\"say\"><xsl:message>version six</xsl:message></xsl:template>"));
  fs::last_write_time(included, kept_time);
  EXPECT_EQ("version six|2|", report_text());
  fs::rename(file("codes.new", stylesheet(
      "<xsl:template name=\"say\"><xsl:message>version ten</xsl:message></xsl:template>")), included);
  fs::last_write_time(included, kept_time);
  EXPECT_EQ("version ten|2|", report_text());
  file("main.xsl", stylesheet(
      "<xsl:include href=\"codes.xsl\"/><xsl:template match=\"/\"><xsl:message>edited</xsl:message>"
      "</xsl:template>"));
  EXPECT_EQ("edited|", report_text());
  fs::remove(main);
  EXPECT_EQ(Rules::Report::Outcome::stylesheet_not_loaded, Rules::check(document, main).outcome);
}

// A run beyond its memory or its time budget is stopped, fails with the budget's own words, and
// leaves the next check as it was.
TEST_F(RuleCheck, ARunBeyondItsBudgetIsStoppedAndSaysWhichBudget) {
  const auto recursion = [&](const std::string& name, const std::string& parameter,
                             const std::string& next, const std::string& start) {
    return file(name + ".xsl", stylesheet(
        "<xsl:template name=\"r\"><xsl:param name=\"p\"/><xsl:param name=\"n\"/>"
        "<xsl:if test=\"$n &gt; 0\"><xsl:call-template name=\"r\">"
        "<xsl:with-param name=\"p\" select=\"" + parameter + "\"/>"
        "<xsl:with-param name=\"n\" select=\"$n - 1\"/></xsl:call-template>" + next +
        "</xsl:if></xsl:template><xsl:template match=\"/\"><xsl:call-template name=\"r\">"
        "<xsl:with-param name=\"p\" select=\"'xy'\"/><xsl:with-param name=\"n\" select=\"" +
        start + "\"/></xsl:call-template><xsl:message>done</xsl:message></xsl:template>"));
  };
  const std::string again = "<xsl:call-template name=\"r\"><xsl:with-param name=\"n\" "
                            "select=\"$n - 1\"/></xsl:call-template>";
  const struct { std::string stylesheet, message; } cases[] = {
      {recursion("doubling", "concat($p, $p)", "", "40"),
       "Tivalo: The stylesheet used more than its budget of 16 MiB of memory; the check was "
       "stopped."},
      {recursion("spinning", "$p", again, "60"),
       "Tivalo: The stylesheet ran longer than its budget of 300 ms; the check was stopped."}};
  Rules::set_budget({size_t(16) << 20, std::chrono::milliseconds(300)});
  for (const auto& c : cases) {
    const Rules::Report report = Rules::check(document, c.stylesheet);
    EXPECT_EQ(Rules::Report::Outcome::stylesheet_failed, report.outcome);
    ASSERT_EQ(1u, report.problems.size());
    EXPECT_EQ(c.message, report.problems[0].text);
    EXPECT_EQ(c.message, report.deliveries.back().text);
    EXPECT_TRUE(report.findings.empty());
  }
  const Rules::Report within = Rules::check(document, recursion("within", "concat($p, $p)", "", "10"));
  EXPECT_EQ(Rules::Report::Outcome::checked, within.outcome);
  EXPECT_EQ(std::vector<std::string>{"done"}, texts(within));
}

// A check that takes long on one thread delays no check on another, and both see only their own
// messages.
TEST_F(RuleCheck, ChecksOnDifferentThreadsRunAtOnce) {
  const std::string slow = file("slow.xsl", stylesheet(R"X(
  <xsl:template name="spin"><xsl:param name="n"/>
    <xsl:if test="$n &gt; 0">
      <xsl:call-template name="spin"><xsl:with-param name="n" select="$n - 1"/></xsl:call-template>
      <xsl:call-template name="spin"><xsl:with-param name="n" select="$n - 1"/></xsl:call-template>
    </xsl:if>
  </xsl:template>
  <xsl:template match="/"><xsl:call-template name="spin"><xsl:with-param name="n" select="21"/>
    </xsl:call-template><xsl:message>slow done</xsl:message></xsl:template>)X"));
  const std::string quick = file("quick.xsl", stylesheet(
      "<xsl:template match=\"/\"><xsl:message>quick</xsl:message></xsl:template>"));
  const std::string failing = file("failing.xsl", stylesheet(
      "<xsl:template match=\"/\"><xsl:if test=\"matches(., 'x')\"/></xsl:template>"));
  Rules::load_stylesheet(slow);
  std::atomic<bool> slow_finished{false};
  Rules::Report slow_report;
  std::thread slow_thread([&] {
    slow_report = Rules::check(document, slow);
    slow_finished = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  int quick_checks_while_slow_ran = 0;
  for (int i = 0; i < 20; ++i) {
    const Rules::Report report = Rules::check(document, quick);
    EXPECT_EQ(std::vector<std::string>{"quick"}, texts(report));
    // The processor's complaints reach the check that caused them, on its own thread.
    const Rules::Report failed = Rules::check(document, failing);
    EXPECT_EQ(Rules::Report::Outcome::stylesheet_failed, failed.outcome);
    if (!slow_finished) ++quick_checks_while_slow_ran;
  }
  slow_thread.join();
  EXPECT_EQ(std::vector<std::string>{"slow done"}, texts(slow_report));
  EXPECT_TRUE(slow_report.problems.empty());
  EXPECT_EQ(20, quick_checks_while_slow_ran) << "the slow check blocked the quick ones";
}

}  // namespace
