<?xml version="1.0" encoding="UTF-8"?>
<!-- A small rule set of the everyday kind: code-list checks on currencies and units and a check
     that every line has an identifier. Reports the first problem as a message. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform"
    xmlns:cbc="urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2"
    xmlns:cac="urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2">
  <xsl:output method="text"/>
  <xsl:variable name="currencies" select="' EUR USD GBP CHF JPY SEK NOK DKK PLN CZK '"/>
  <xsl:variable name="units" select="' C62 MTR KGM LTR HUR DAY EA '"/>
  <xsl:template match="/">
    <xsl:for-each select="//*[@currencyID]">
      <xsl:if test="not(contains($currencies, concat(' ', @currencyID, ' ')))">
        <xsl:message>[CL-01] unknown currency <xsl:value-of select="@currencyID"/></xsl:message>
      </xsl:if>
    </xsl:for-each>
    <xsl:for-each select="//*[@unitCode]">
      <xsl:if test="not(contains($units, concat(' ', @unitCode, ' ')))">
        <xsl:message>[CL-02] unknown unit <xsl:value-of select="@unitCode"/></xsl:message>
      </xsl:if>
    </xsl:for-each>
    <xsl:for-each select="//cac:InvoiceLine[not(cbc:ID)]">
      <xsl:message>[BR-01] a line without an identifier</xsl:message>
    </xsl:for-each>
  </xsl:template>
</xsl:stylesheet>
