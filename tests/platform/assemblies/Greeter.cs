// SPDX-License-Identifier: MIT
#if SATELLITE
[assembly: System.Reflection.AssemblyCulture("de")]
#else
public static class Greeter {
  public static int Rank;
#if UPDATED
  public static string Greet(string name) => "welcome, " + name;
#else
  public static string Greet(string name) => "greetings, " + name;
#endif
}
#endif
