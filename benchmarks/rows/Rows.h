#pragma once

class Report;
class Setting;

// The measurements. Each adds the rows that the report wants, and throws std::runtime_error when something
// answers wrongly.

void MeasureStart(const Setting& setting, Report& report);
void MeasureEcho(const Setting& setting, Report& report);
void MeasureSigning(const Setting& setting, Report& report);
void MeasureGst(const Setting& setting, Report& report);
void MeasureLists(const Setting& setting, Report& report);
