<?xml version="1.0" encoding="UTF-8"?>
<!--
  Code-list rules for UBL 2.0 documents, as an XSLT 1.0 stylesheet: every currency, country and
  invoice type code must come from the list the trading partners agreed on. Each value outside
  its list is reported with one xsl:message naming the code list, the value and where it is.

  Given to `tivalo validate` as its rules option, or to a document object's
  GetValueValidationErrors.
  Edit the lists below to match an agreement; add a template per code list to check more.
-->
<xsl:stylesheet version="1.0"
    xmlns:xsl="http://www.w3.org/1999/XSL/Transform"
    xmlns:cbc="urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2"
    xmlns:cac="urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2">

  <xsl:output method="text"/>

  <!-- The agreed lists, one blank-separated string each, with a blank at both ends. -->
  <xsl:variable name="currency-codes" select="' EUR USD GBP CHF SEK NOK DKK PLN CZK HUF JPY CAD AUD '"/>
  <xsl:variable name="country-codes"
      select="' AT BE BG CH CY CZ DE DK EE ES FI FR GB GR HR HU IE IS IT LI LT LU LV MT NL NO PL PT RO SE SI SK US '"/>
  <xsl:variable name="invoice-type-codes" select="' 380 381 383 384 386 389 '"/>

  <xsl:template match="/">
    <xsl:apply-templates select="//@currencyID | //cbc:DocumentCurrencyCode | //cbc:PricingCurrencyCode
                                 | //cbc:TaxCurrencyCode | //cac:Country/cbc:IdentificationCode
                                 | //cbc:InvoiceTypeCode"/>
  </xsl:template>

  <xsl:template match="@currencyID | cbc:DocumentCurrencyCode | cbc:PricingCurrencyCode | cbc:TaxCurrencyCode">
    <xsl:call-template name="check">
      <xsl:with-param name="list" select="$currency-codes"/>
      <xsl:with-param name="list-name" select="'CurrencyCode'"/>
    </xsl:call-template>
  </xsl:template>

  <xsl:template match="cac:Country/cbc:IdentificationCode">
    <xsl:call-template name="check">
      <xsl:with-param name="list" select="$country-codes"/>
      <xsl:with-param name="list-name" select="'CountryIdentificationCode'"/>
    </xsl:call-template>
  </xsl:template>

  <xsl:template match="cbc:InvoiceTypeCode">
    <xsl:call-template name="check">
      <xsl:with-param name="list" select="$invoice-type-codes"/>
      <xsl:with-param name="list-name" select="'InvoiceTypeCode'"/>
    </xsl:call-template>
  </xsl:template>

  <!-- One message per value that is not in its list. -->
  <xsl:template name="check">
    <xsl:param name="list"/>
    <xsl:param name="list-name"/>
    <xsl:if test="not(contains($list, concat(' ', normalize-space(.), ' ')))">
      <xsl:message>
        <xsl:text>Value '</xsl:text>
        <xsl:value-of select="."/>
        <xsl:text>' is not in the code list '</xsl:text>
        <xsl:value-of select="$list-name"/>
        <xsl:text>' (at </xsl:text>
        <xsl:for-each select="ancestor-or-self::*">
          <xsl:text>/</xsl:text>
          <xsl:value-of select="name()"/>
        </xsl:for-each>
        <xsl:if test="count(. | ../@*) = count(../@*)">
          <xsl:text>/@</xsl:text>
          <xsl:value-of select="name()"/>
        </xsl:if>
        <xsl:text>)</xsl:text>
      </xsl:message>
    </xsl:if>
  </xsl:template>

</xsl:stylesheet>
