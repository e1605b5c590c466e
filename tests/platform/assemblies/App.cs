// SPDX-License-Identifier: MIT
public static class App {
  public static int Main(string[] arguments) {
    System.Console.WriteLine(Greeter.Greet(string.Join("|", arguments)));
    return arguments.Length;
  }
}
